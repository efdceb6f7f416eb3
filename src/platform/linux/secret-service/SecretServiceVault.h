#pragma once

#include "platform/linux/InterruptibleVault.h"
#include "platform/linux/secret-service/SessionBus.h"

#define SECRET_WITH_UNSTABLE 1
#define SECRET_API_SUBJECT_TO_CHANGE 1
#include <libsecret/secret.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace vorlane {

/// Secrets in the desktop's keyring. The secrets themselves travel through
/// libsecret's encrypted session; everything else is plain calls on the bus, so
/// that each can be interrupted and none shows a dialog: a keyring that only a
/// person can unlock answers interactionNotAllowed.
class SecretServiceVault : public InterruptibleVault {
 public:
  SecretServiceVault();
  ~SecretServiceVault() override;
  SecretServiceVault(const SecretServiceVault&) = delete;
  SecretServiceVault& operator=(const SecretServiceVault&) = delete;

  Read read(const SecretItem& item) override;
  vault::Status update(const SecretItem& item, const std::string& bytes) override;
  vault::Status add(const SecretItem& item, const std::string& bytes) override;
  vault::Status remove(const SecretItem& item) override;
  std::optional<std::string> stamp(const SecretItem& item) override;
  void interrupt() override;
  void reset() override;
  bool usable() override;

 private:
  struct Found {
    vault::Status status = vault::success;
    std::string path;
  };

  SessionBus::Reply call(const std::string& path, const char* interface, const char* method,
                         GVariant* parameters);
  vault::Status openSession();
  void closeSession();
  Found find(const SecretItem& item);
  bool unlocksAlone(const std::string& path);
  vault::Status afterPrompt(GVariant* reply);
  GVariant* encoded(const std::string& bytes);
  vault::Status statusOf(const std::string& error);

  // Signals that libsecret's own object hears are queued here and thrown away.
  GMainContext* const context_;
  SessionBus bus_;
  Object<SecretService> service_;
  std::string owner_;  // of the service's name, when the session was opened

  std::mutex lock_;
  Object<GCancellable> cancellable_;  // guarded by lock_; replaced between calls
};

}  // namespace vorlane
