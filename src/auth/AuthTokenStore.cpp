#include "auth/AuthTokenStore.h"

#include "auth/AuthError.h"
#include "auth/AuthNotifications.h"
#include "auth/JWTClaims.h"
#include "base/JSONArguments.h"
#include "base/Redaction.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

const SecretItem item{"com.vorlane.auth", "auth0-tokens"};

void keepOutOfLogs(const AuthTokens& tokens) {
  for (const auto& secret : tokens.credentials()) {
    if (secret) keepSecret(*secret);
  }
}

std::shared_ptr<const StoredTokens> decoded(const std::string& bytes) {
  auto record = std::make_shared<StoredTokens>();
  try {
    record->tokens = AuthTokens::fromStored(bytes);
  } catch (const AuthDecodingFailure&) {
    return nullptr;
  }
  if (record->tokens.idToken) {
    if (auto claims = decodeClaims(*record->tokens.idToken)) record->idClaims = std::move(*claims);
  }
  record->owner = json::string(record->idClaims, "sub");
  return record;
}

}  // namespace

AuthTokenStore::AuthTokenStore(SecretVault& vault, SignalCenter& signals,
                               std::shared_ptr<const AuthAccountEpoch> epoch, Log log)
    : vault_(vault), signals_(signals), epoch_(std::move(epoch)), log_(std::move(log)) {}

std::shared_ptr<const StoredTokens> AuthTokenStore::load() const {
  std::uint64_t writes = 0;
  {
    const std::scoped_lock hold(lock_);
    writes = writes_;
  }
  // Taken before the item is read, so that a write in between is seen next time.
  auto stamp = vault_.stamp(item);
  if (stamp) {
    const std::scoped_lock hold(lock_);
    if (stamp_ == stamp) return kept_;
  }
  return read(std::move(stamp), writes);
}

std::shared_ptr<const StoredTokens> AuthTokenStore::read(std::optional<std::string> stamp,
                                                         std::uint64_t writes) const {
  const auto found = vault_.read(item);
  std::shared_ptr<const StoredTokens> record;
  if (found.status == vault::success) {
    record = decoded(found.bytes);
    if (record) keepOutOfLogs(record->tokens);
    log_(fmt::format("AuthTokenStore.load HIT bytes={} decoded={}", found.bytes.size(), record != nullptr));
    if (record) log_(claimsLogLine(record->tokens.accessToken));
  } else {
    log_(fmt::format("AuthTokenStore.load MISS status={}", found.status));
  }
  // A vault that is locked or away says nothing about the item, and may answer
  // a moment later without any change of its stamp.
  const bool certain = found.status == vault::success || found.status == vault::itemNotFound;
  if (stamp && certain) {
    const std::scoped_lock hold(lock_);
    if (writes == writes_) {
      stamp_ = std::move(stamp);
      kept_ = record;
    }
  }
  return record;
}

void AuthTokenStore::save(const AuthTokens& tokens) {
  keepOutOfLogs(tokens);
  std::shared_ptr<const StoredTokens> before;
  {
    const std::scoped_lock hold(writing_);
    before = load();
    const auto bytes = tokens.storedText();
    auto status = vault_.update(item, bytes);
    if (status == vault::itemNotFound) status = vault_.add(item, bytes);
    forget();
    log_(fmt::format("AuthTokenStore.save status={} bytes={}", status, bytes.size()));
    if (status != vault::success) throw AuthError::keychain(status);
  }
  compareOwners(before, ownerOf(tokens));
}

void AuthTokenStore::clear() {
  std::shared_ptr<const StoredTokens> before;
  {
    const std::scoped_lock hold(writing_);
    before = load();
    const auto status = vault_.remove(item);
    forget();
    if (status != vault::success && status != vault::itemNotFound) return;
  }
  compareOwners(before, std::nullopt);
}

/// A vault may tell of its own change late, so that its stamp alone does not do
/// after a write of this process.
void AuthTokenStore::forget() {
  const std::scoped_lock hold(lock_);
  stamp_.reset();
  kept_.reset();
  ++writes_;
}

void AuthTokenStore::compareOwners(const std::shared_ptr<const StoredTokens>& before,
                                   const std::optional<std::string>& owner) {
  if ((before ? before->owner : std::nullopt) != owner) signals_.post(auth::ownerChanged);
}

}  // namespace vorlane
