#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace vorlane {

/// The status codes of vault operations: those of the system keychain that the
/// interface stands for.
namespace vault {
using Status = std::int32_t;
inline constexpr Status success = 0;
inline constexpr Status itemNotFound = -25300;
inline constexpr Status duplicateItem = -25299;
/// The keyring is there but locked, and nobody unlocked it in time.
inline constexpr Status interactionNotAllowed = -25308;
/// No keyring answers, or not in time, or its storage fails.
inline constexpr Status notAvailable = -25291;
}  // namespace vault

/// Names one secret.
struct SecretItem {
  std::string service;
  std::string account;
};

/// Secrets of the signed-in person, one item for each service and account.
/// Stands for SecItemCopyMatching, SecItemUpdate, SecItemAdd and SecItemDelete on
/// generic passwords. Callable from any thread. No call waits longer than a few
/// seconds, whatever the keyring does; nothing here throws.
class SecretVault {
 public:
  struct Read {
    vault::Status status = vault::itemNotFound;
    std::string bytes;
  };

  virtual ~SecretVault() = default;

  virtual Read read(const SecretItem& item) = 0;
  /// Replaces the item's bytes; itemNotFound when there is none.
  virtual vault::Status update(const SecretItem& item, const std::string& bytes) = 0;
  /// Makes the item; duplicateItem when it is there.
  virtual vault::Status add(const SecretItem& item, const std::string& bytes) = 0;
  virtual vault::Status remove(const SecretItem& item) = 0;

  /// A cheap mark of the item's present state: as long as it stays equal the item
  /// is unchanged, also when another process may write it. Nothing when the vault
  /// does not know, and the item then has to be read.
  virtual std::optional<std::string> stamp(const SecretItem& item) = 0;
};

}  // namespace vorlane
