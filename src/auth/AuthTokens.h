#pragma once

#include "base/Date.h"
#include "base/Failure.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Tokens in their stored or their wire form could not be read. The description
/// names the key or the byte and never holds anything of the text itself, so
/// that it may be logged.
class AuthDecodingFailure : public Failure {
 public:
  using Failure::Failure;
};

/// The credentials of the one signed-in person.
struct AuthTokens {
  /// Sent to the cloud APIs as the bearer credential.
  std::string accessToken;
  /// A JSON Web Token whose "sub" claim names the owner.
  std::optional<std::string> idToken;
  /// Absent for a sign-in that did not ask for offline access.
  std::optional<std::string> refreshToken;
  /// When `accessToken` expires.
  Date expiresAt;
  /// The scheme word, normally "Bearer".
  std::string tokenType;

  /// What makes two records the same tokens: the three credentials, whatever
  /// their expiry or type. An absent value equals only an absent one.
  using Credentials = std::array<std::optional<std::string>, 3>;
  Credentials credentials() const { return {accessToken, idToken, refreshToken}; }

  /// The stored form, and back. Writing throws JSONWriteFailure for a token that
  /// is not valid UTF-8, reading throws AuthDecodingFailure.
  std::string storedText() const;
  static AuthTokens fromStored(std::string_view text);

  /// Reads the body of a 200 answer of the token endpoint that arrived at `now`.
  /// Throws AuthDecodingFailure.
  static AuthTokens fromResponse(std::string_view body, Date now);

  friend bool operator==(const AuthTokens&, const AuthTokens&) = default;
};

}  // namespace vorlane
