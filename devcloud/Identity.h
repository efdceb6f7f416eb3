#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Journal.h"
#include "devcloud/Message.h"
#include "devcloud/People.h"
#include "devcloud/Service.h"
#include "devcloud/Services.h"
#include "devcloud/SigningKey.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

class Router;

/// The one public client that the identity provider knows.
inline constexpr std::string_view clientID = "Zr4mT8qLw2NcXv6PbY1sKfH9dGj3UeAo";

/// Tokens as an agent keeps them.
struct IssuedTokens {
  std::string accessToken;
  std::string idToken;
  std::string refreshToken;
  Date expiresAt;

  /// The record to put into an agent's vault: "accessToken", "idToken",
  /// "refreshToken", "expiresAt" (seconds since 2001), "tokenType".
  JSONMap storedForm() const;
};

/// The identity provider: signs tokens, renews them for a refresh token, and
/// knows for the web APIs who a bearer is. To control it:
///
///   POST   tokens          {"sub", "lifetime"?} -> the record for an agent's vault
///   DELETE tokens/{sub}    ends every refresh token of the person
class Identity : public Service {
 public:
  explicit Identity(const Services& services);

  void addRoutes(Router& router) override;

  /// A fresh set for a person; the access token lives for `lifetime` seconds, by
  /// default the person's. Throws Failure when there is no such person.
  IssuedTokens issue(std::string_view sub, std::optional<std::int64_t> lifetime = std::nullopt);
  /// Ends every refresh token of the person; access tokens live on until they expire.
  void revoke(std::string_view sub);

  /// The person whose access token the request bears; throws an apiError of
  /// status 401 for a token that is missing, not ours, expired, for somebody
  /// else to read, or whose person is gone.
  const Person& authenticate(const Request& request) const;

  std::string_view stateName() const override { return "refreshTokens"; }
  JSONValue state() const override;
  void restore(const JSONValue& state) override;

 private:
  struct RefreshGrant {
    std::string sub;
    /// Grows with each token, to find the oldest of a person.
    std::int64_t number = 0;
  };
  using Form = std::map<std::string, std::string, std::less<>>;

  Response token(const Request& request);
  Response refresh(const Form& form);
  Response keys() const;
  Response discovery() const;
  std::string accessToken(const Person& person, Date expiresAt) const;
  std::string idToken(const Person& person, Date expiresAt) const;
  std::string newRefreshToken(const std::string& sub);

  People& people_;
  const SigningKey key_;
  const CloudSettings& settings_;
  const ChangeRecorder changed_;
  /// By the token's digest: the tokens themselves are nowhere kept.
  std::map<std::string, RefreshGrant, std::less<>> grants_;
  std::int64_t nextNumber_ = 1;
};

}  // namespace vorlane::devcloud
