#include "auth/AccountMark.h"

#include <utility>

namespace vorlane {

AccountMark::AccountMark(std::shared_ptr<const Account> account)
    : account_(std::move(account)), epoch_(account_->epoch()), owner_(account_->currentUser()) {}

AccountMark::AccountMark(std::shared_ptr<const Account> account, std::optional<std::string> owner)
    : account_(std::move(account)), epoch_(account_->epoch()), owner_(std::move(owner)) {}

}  // namespace vorlane
