#include "access/AgentBearerStore.h"

#include "base/ConstantTime.h"
#include "base/Encodings.h"
#include "base/Redaction.h"
#include "base/SecureRandom.h"

#include <exception>
#include <utility>

namespace vorlane {
namespace {

std::string newSecret() {
  return hexText(secureRandomBytes(32));
}

}  // namespace

AgentBearerStore::AgentBearerStore(std::shared_ptr<BearerSecretStorage> storage)
    : storage_(std::move(storage)) {}

std::string AgentBearerStore::currentToken() {
  if (auto secret = stored()) return *std::move(secret);
  const std::scoped_lock making(making_);
  // Whoever held the lock before, or another process, may have made it.
  forget();
  if (auto secret = stored()) return *std::move(secret);
  auto fresh = newSecret();
  keepSecret(fresh);
  if (storage_->create(fresh)) return fresh;
  forget();
  if (auto secret = stored()) return *std::move(secret);
  // What is there is no secret anybody could use.
  storage_->write(fresh);
  forget();
  return fresh;
}

void AgentBearerStore::regenerate() {
  const std::scoped_lock making(making_);
  storage_->write(newSecret());
  forget();
}

bool AgentBearerStore::validate(std::string_view token) {
  try {
    const auto secret = stored();
    return secret && equalInConstantTime(*secret, token);
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::string> AgentBearerStore::stored() {
  // Taken before the read: a change in between then shows at the next use.
  auto stamp = storage_->stamp();
  if (stamp) {
    const std::scoped_lock hold(lock_);
    if (kept_ && kept_->stamp == *stamp) return kept_->secret;
  }
  auto secret = storage_->read();
  if (secret && secret->empty()) secret.reset();
  if (secret) keepSecret(*secret);
  const std::scoped_lock hold(lock_);
  if (stamp) {
    kept_ = Kept{*std::move(stamp), secret};
  } else {
    kept_.reset();
  }
  return secret;
}

void AgentBearerStore::forget() {
  const std::scoped_lock hold(lock_);
  kept_.reset();
}

}  // namespace vorlane
