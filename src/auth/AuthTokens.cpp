#include "auth/AuthTokens.h"

#include "base/JSON.h"
#include "base/JSONArguments.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

constexpr double defaultLifetime = 3600;  // seconds
constexpr std::string_view defaultTokenType = "Bearer";

/// Reads the members of one object strictly: a value of another type fails, and
/// a null counts as absent.
class Members {
 public:
  explicit Members(std::string_view text) : map_(parsed(text)) {}

  std::optional<std::string> string(std::string_view key) const {
    const auto* value = present(key);
    if (value == nullptr) return std::nullopt;
    if (!value->is_string()) throw AuthDecodingFailure(fmt::format("\"{}\" is not a string", key));
    return std::string(value->get_string());
  }

  std::optional<double> number(std::string_view key) const {
    const auto* value = present(key);
    if (value == nullptr) return std::nullopt;
    const auto number = json::number(*value);
    if (!number) throw AuthDecodingFailure(fmt::format("\"{}\" is not a number", key));
    return number;
  }

  template <class T>
  static T required(std::optional<T> value, std::string_view key) {
    if (!value) throw AuthDecodingFailure(fmt::format("\"{}\" is missing", key));
    return std::move(*value);
  }

 private:
  static JSONMap parsed(std::string_view text) {
    try {
      return parseJSONMap(text);
    } catch (const JSONParseFailure& failure) {
      throw AuthDecodingFailure(failure.description());
    }
  }

  const JSONValue* present(std::string_view key) const {
    const auto* value = json::find(map_, key);
    return value == nullptr || value->is_null() ? nullptr : value;
  }

  JSONMap map_;
};

}  // namespace

std::string AuthTokens::storedText() const {
  JSONMap map;
  map["accessToken"] = accessToken;
  if (idToken) map["idToken"] = *idToken;
  if (refreshToken) map["refreshToken"] = *refreshToken;
  map["expiresAt"] = secondsSince2001(expiresAt);
  map["tokenType"] = tokenType;
  return writeJSON(map);
}

AuthTokens AuthTokens::fromStored(std::string_view text) {
  const Members members(text);
  AuthTokens tokens;
  tokens.accessToken = Members::required(members.string("accessToken"), "accessToken");
  tokens.idToken = members.string("idToken");
  tokens.refreshToken = members.string("refreshToken");
  const double expiry = Members::required(members.number("expiresAt"), "expiresAt");
  tokens.expiresAt = Members::required(dateFromSecondsSince2001(expiry), "expiresAt");
  tokens.tokenType = Members::required(members.string("tokenType"), "tokenType");
  return tokens;
}

AuthTokens AuthTokens::fromResponse(std::string_view body, Date now) {
  const Members members(body);
  AuthTokens tokens;
  tokens.accessToken = Members::required(members.string("access_token"), "access_token");
  tokens.idToken = members.string("id_token");
  tokens.refreshToken = members.string("refresh_token");
  const double lifetime = members.number("expires_in").value_or(defaultLifetime);
  // Added as numbers, so that an absurd lifetime ends at the last date and not in an overflow.
  tokens.expiresAt =
      Members::required(dateFromSecondsSince2001(secondsSince2001(now) + lifetime), "expires_in");
  tokens.tokenType = members.string("token_type").value_or(std::string(defaultTokenType));
  return tokens;
}

}  // namespace vorlane
