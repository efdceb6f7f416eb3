#include "auth/JWTClaims.h"

#include "base/Encodings.h"
#include "base/JSONArguments.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace vorlane {
namespace {

/// The middle one of exactly three parts, empty parts counted.
std::optional<std::string_view> payloadPart(std::string_view token) {
  const auto first = token.find('.');
  if (first == std::string_view::npos) return std::nullopt;
  const auto second = token.find('.', first + 1);
  if (second == std::string_view::npos || token.find('.', second + 1) != std::string_view::npos) {
    return std::nullopt;
  }
  return token.substr(first + 1, second - first - 1);
}

std::optional<JSONMap> decodePayload(std::string_view part) {
  std::string base64(part);
  std::ranges::replace(base64, '-', '+');
  std::ranges::replace(base64, '_', '/');
  while (base64.size() % 4 != 0) base64 += '=';
  const auto bytes = base64Decoded(base64);
  if (!bytes) return std::nullopt;
  try {
    return parseJSONMap(*bytes);
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
}

std::string plainText(const JSONMap& claims, std::string_view key) {
  const auto* value = json::find(claims, key);
  if (value == nullptr) return "?";
  if (value->is_string()) return std::string(value->get_string());
  return writeJSON(*value);
}

}  // namespace

std::optional<JSONMap> decodeClaims(std::string_view token) {
  const auto part = payloadPart(token);
  return part ? decodePayload(*part) : std::nullopt;
}

std::string claimsLogLine(std::string_view token) {
  const auto part = payloadPart(token);
  if (!part) return "token claims: not a JWT";
  const auto claims = decodePayload(*part);
  if (!claims) return "token claims: undecodable";
  return fmt::format("token claims iss={} aud={} exp={}", plainText(*claims, "iss"),
                     plainText(*claims, "aud"), plainText(*claims, "exp"));
}

std::optional<std::string> ownerOf(const AuthTokens& tokens) {
  if (!tokens.idToken) return std::nullopt;
  const auto claims = decodeClaims(*tokens.idToken);
  return claims ? json::string(*claims, "sub") : std::nullopt;
}

bool namesAdministrator(const AuthTokens& tokens, const AdministratorRule& rule) {
  for (const auto& token : {std::optional(tokens.accessToken), tokens.idToken}) {
    const auto claims = token ? decodeClaims(*token) : std::nullopt;
    if (!claims) continue;
    if (rule.claimHost && json::booleanOr(*claims, "https://" + *rule.claimHost + "/isAdmin", false)) {
      return true;
    }
    const auto email = json::string(*claims, "email");
    if (email && std::ranges::find(rule.emails, lowercased(*email)) != rule.emails.end()) return true;
  }
  return false;
}

}  // namespace vorlane
