#pragma once

#include "base/Date.h"
#include "base/JSON.h"
#include "devcloud/Message.h"
#include "devcloud/People.h"
#include "devcloud/SigningKey.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

class Router;

/// The one public client that the identity provider knows.
inline constexpr std::string_view clientID = "Zr4mT8qLw2NcXv6PbY1sKfH9dGj3UeAo";

/// What the identity provider is called, and what it writes into tokens.
struct IdentityNames {
  /// "https://HOST:PORT/".
  std::string issuer;
  /// The API that access tokens are for.
  std::string audience;
  /// The administrator claim is "https://" + this + "/isAdmin".
  std::string adminClaimHost;
};

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
/// tells the web APIs who a bearer is.
class Identity {
 public:
  Identity(const People& people, const SigningKey& key, IdentityNames names, Clock clock,
           std::function<void()> changed);

  void addRoutes(Router& router);

  /// A fresh set for a person; the access token lives for `lifetime` seconds, by
  /// default the person's. Throws Failure when there is no such person.
  IssuedTokens issue(std::string_view sub, std::optional<std::int64_t> lifetime = std::nullopt);
  /// Ends every refresh token of the person; access tokens live on until they expire.
  void revoke(std::string_view sub);

  /// The person whose access token the request bears; throws an apiError of
  /// status 401 for a token that is missing, not ours, expired, for somebody
  /// else to read, or whose person is gone.
  const Person& authenticate(const Request& request) const;

  JSONArray state() const;
  void restore(const JSONArray& state);

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

  const People& people_;
  const SigningKey& key_;
  const IdentityNames names_;
  const Clock clock_;
  const std::function<void()> changed_;
  /// By the token's digest: the tokens themselves are nowhere kept.
  std::map<std::string, RefreshGrant, std::less<>> grants_;
  std::int64_t nextNumber_ = 1;
};

}  // namespace vorlane::devcloud
