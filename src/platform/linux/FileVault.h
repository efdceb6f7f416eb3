#pragma once

#include "base/FileDescriptor.h"
#include "platform/SecretVault.h"
#include "platform/linux/FileLock.h"

#include <optional>
#include <string>

namespace vorlane {

/// Secrets as files FOLDER/SERVICE/ACCOUNT: the raw bytes, mode 0600 in folders of
/// mode 0700, replaced by rename. Symbolic links are never followed. Names are
/// percent-encoded where they hold anything but letters, digits and "-._~" or
/// begin with a dot, so that no name leaves the folder or meets the lock file.
class FileVault : public SecretVault {
 public:
  explicit FileVault(std::string folder) : folder_(std::move(folder)) {}

  Read read(const SecretItem& item) override;
  vault::Status update(const SecretItem& item, const std::string& bytes) override;
  vault::Status add(const SecretItem& item, const std::string& bytes) override;
  vault::Status remove(const SecretItem& item) override;
  std::optional<std::string> stamp(const SecretItem& item) override;

 private:
  struct Writing;
  FileDescriptor openService(const SecretItem& item, int& error) const;
  vault::Status beginWriting(const SecretItem& item, bool make, Writing& writing) const;
  vault::Status write(const SecretItem& item, const std::string& bytes, bool mustExist) const;

  const std::string folder_;
};

}  // namespace vorlane
