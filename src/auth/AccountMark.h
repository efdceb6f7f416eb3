#pragma once

#include "cloud/Account.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// The owner and epoch that a piece of work began under. Whoever works for an account takes one
/// and asks `holds` before a result counts, or a request goes out with a token that was fetched
/// meanwhile. A value that copies freely; callable from any thread.
class AccountMark {
 public:
  /// Of whoever is signed in now, also of nobody. Throws what asking for them throws.
  explicit AccountMark(std::shared_ptr<const Account> account);
  /// Of `owner`, whom the work is for; who is signed in is not asked for.
  AccountMark(std::shared_ptr<const Account> account, std::optional<std::string> owner);

  const std::optional<std::string>& owner() const { return owner_; }
  /// Whether the account has not changed since, and is still the owner's; or nobody's, where the
  /// mark is. Throws what asking for the signed-in user throws.
  bool holds() const { return isSameEpoch() && account_->currentUser() == owner_; }
  /// Whether the account has not changed since. For work that tells its owner by more than an
  /// id, as by the credentials themselves.
  bool isSameEpoch() const { return account_->epoch() == epoch_; }

 private:
  std::shared_ptr<const Account> account_;
  // Read before the owner, so that a change in between is noticed.
  std::int64_t epoch_;
  std::optional<std::string> owner_;
};

}  // namespace vorlane
