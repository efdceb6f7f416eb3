#pragma once

#include "platform/SecretVault.h"

namespace vorlane {

/// The vault of a machine that has no place for secrets: every operation ends in notAvailable.
class AbsentVault final : public SecretVault {
 public:
  Read read(const SecretItem&) override { return {vault::notAvailable, {}}; }
  vault::Status update(const SecretItem&, const std::string&) override { return vault::notAvailable; }
  vault::Status add(const SecretItem&, const std::string&) override { return vault::notAvailable; }
  vault::Status remove(const SecretItem&) override { return vault::notAvailable; }
  std::optional<std::string> stamp(const SecretItem&) override { return "none"; }
};

}  // namespace vorlane
