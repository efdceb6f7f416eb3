#pragma once

#include "auth/AuthTokens.h"
#include "base/JSON.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Reading the claims of JSON Web Tokens. Signatures are never verified here:
/// the tokens are the person's own, and the servers that grant anything verify
/// them.
namespace vorlane {

/// The claims of a token in its three-part form; nothing for any other text.
std::optional<JSONMap> decodeClaims(std::string_view token);

/// The log line that tells whose token this is: issuer, audience and expiry, and
/// nothing of the token itself.
std::string claimsLogLine(std::string_view token);

/// The "sub" claim of the id token when it is a string.
std::optional<std::string> ownerOf(const AuthTokens& tokens);

/// Who counts as an administrator of the suite in this installation.
struct AdministratorRule {
  /// Addresses in lower case.
  std::vector<std::string> emails;
  /// The host of the administrator claim, "https://HOST/isAdmin".
  std::optional<std::string> claimHost;
};

/// Whether one of the tokens (access token first, then id token) names an
/// administrator. A token that cannot be decoded says nothing; unknown means no.
bool namesAdministrator(const AuthTokens& tokens, const AdministratorRule& rule);

}  // namespace vorlane
