#pragma once

#include "access/BearerSecretStorage.h"
#include "platform/SecretVault.h"

#include <memory>
#include <string>

namespace vorlane {

/// The secret as an item of the person's vault. Failures have the domain
/// "KeychainBearerStorage" and the vault's status as code.
class KeychainBearerStorage : public BearerSecretStorage {
 public:
  explicit KeychainBearerStorage(std::shared_ptr<SecretVault> secrets,
                                 SecretItem item = {"com.vorlane.agent.mcp", "bearer-token"});

  /// Bytes that are no UTF-8 text read as no secret.
  std::optional<std::string> read() override;
  void write(const std::string& secret) override;
  bool create(const std::string& secret) override;
  void remove() override;
  std::optional<std::string> stamp() override;

 private:
  std::shared_ptr<SecretVault> vault_;
  SecretItem item_;
};

}  // namespace vorlane
