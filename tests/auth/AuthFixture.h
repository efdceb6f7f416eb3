#pragma once

#include "auth/AuthError.h"
#include "auth/AuthNotifications.h"
#include "auth/AuthTokenStore.h"
#include "base/Encodings.h"
#include "support/FakeSignalCenter.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"
#include "support/TaskHarness.h"

#include <gtest/gtest.h>

namespace vorlane::testing {

inline const SecretItem tokenItem{"com.vorlane.auth", "auth0-tokens"};
inline const Date noon = Date(std::chrono::seconds(1'800'000'000));

/// An unsigned token with these claims.
inline std::string jwt(std::string_view claims) {
  return base64URLEncoded(R"({"alg":"none"})") + "." + base64URLEncoded(claims) + ".c2ln";
}

/// Tokens of a person that are due at noon, each generation with other texts.
inline AuthTokens tokensOf(const std::string& sub, int generation = 1) {
  const auto mark = std::to_string(generation);
  return {jwt(R"({"iss":"issuer","gen":)" + mark + R"(,"aud":["api"],"exp":4})"),
          jwt(R"({"sub":")" + sub + R"("})"), "refresh-" + mark, noon, "Bearer"};
}

/// A token store over a vault in memory.
struct AuthFixture : ::testing::Test {
  FakeVault vault;
  FakeSignalCenter signals;
  NotificationCenter notifications;
  LogRecorder log;
  std::shared_ptr<const AuthAccountEpoch> epoch = std::make_shared<AuthAccountEpoch>(signals, notifications);
  AuthTokenStore store{vault, signals, epoch, log.log()};

  std::string owner() const {
    const auto record = store.load();
    return record ? record->owner.value_or("nobody") : "signed out";
  }
  std::string ownerTwice() const {
    const auto first = owner();
    return first + ", " + owner();
  }
  /// As another process would.
  void plant(const AuthTokens& tokens) { vault.plant(tokenItem, tokens.storedText()); }
};

}  // namespace vorlane::testing
