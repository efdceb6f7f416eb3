#pragma once

#include "auth/AuthTokens.h"
#include "base/tasks/Task.h"
#include "platform/URLSession.h"

#include <string>
#include <string_view>
#include <variant>

namespace vorlane {

/// The OAuth public client identifier of the suite; no secret.
inline constexpr char authClientID[] = "Zr4mT8qLw2NcXv6PbY1sKfH9dGj3UeAo";

/// How one attempt to refresh ended.
namespace refresh_outcome {
/// New tokens, to be stored.
struct Refreshed {
  AuthTokens tokens;
};
/// The grant is dead: the person has to sign in again.
struct Rejected {
  std::string reason;
};
/// Nothing is known about the grant: try later.
struct Transient {
  std::string reason;
};
}  // namespace refresh_outcome

using AuthRefreshOutcome =
    std::variant<refresh_outcome::Refreshed, refresh_outcome::Rejected, refresh_outcome::Transient>;

/// The one request that exchanges a refresh token for new tokens, and the sorting
/// of its answer. Decides nothing about what is stored.
struct AuthRefreshClient {
  /// The identity provider: host or host:port.
  std::string domain;
  std::string clientID = authClientID;
  NetworkRunner transport;
  Clock clock = now;

  /// Never throws. The object has to outlive the task. No reason holds a token
  /// of `stored` or anything of a successful answer's body.
  Task<AuthRefreshOutcome> refresh(AuthTokens stored) const;
};

/// The body of a 200 answer with what the provider has not repeated, since it
/// need not send again what it has not rotated: a refresh token or id token of
/// `stored` is added where the body has no such key, a null counting as there.
/// A body that is no JSON object comes back as it is.
std::string carriedForward(std::string body, const AuthTokens& stored);

/// Sorts an answer other than 200. Only a client error with one of the four codes
/// that end a grant is Rejected, so that no faulty server or proxy can sign a
/// person out.
AuthRefreshOutcome classifyRefusal(int status, std::string_view body, const AuthTokens& stored);

}  // namespace vorlane
