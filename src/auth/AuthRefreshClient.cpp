#include "auth/AuthRefreshClient.h"

#include "base/JSON.h"
#include "base/JSONArguments.h"
#include "base/Redaction.h"
#include "base/Text.h"
#include "cloud/Answer.h"
#include "cloud/CloudRequest.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <optional>

namespace vorlane {
namespace {

using namespace refresh_outcome;

/// The error codes that say that the grant itself is dead.
constexpr std::array<std::string_view, 4> rejectingCodes{"invalid_grant", "invalid_client",
                                                         "unauthorized_client", "access_denied"};
constexpr std::size_t excerptLimit = 160;  // characters
constexpr std::chrono::seconds requestTimeout{60};

/// Whether the text can stand between "https://" and a path without becoming
/// anything but a host and port.
bool isAuthority(std::string_view domain) {
  return !domain.empty() && std::ranges::all_of(domain, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view(".-_:[]").find(c) != std::string_view::npos;
  });
}

std::string form(const std::vector<std::pair<std::string_view, std::string_view>>& fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    if (!text.empty()) text += '&';
    text += name;
    text += '=';
    text += percentEncoded(value);
  }
  return text;
}

/// The first characters of an answer's body for the log: empty when it is not
/// text, and without our own tokens should the server have sent them back.
std::string excerpt(int status, std::string_view body, const AuthTokens& stored) {
  // Any kind of success may hold new tokens.
  if (status >= 200 && status <= 299) return {};
  if (!isValidUTF8(body)) return {};
  std::vector<std::string> secrets;
  for (const auto& secret : stored.credentials()) secrets.push_back(secret.value_or(""));
  const auto text = Redaction(secrets).applied(std::string(body));
  return std::string(cloud::firstCharacters(text, excerptLimit));
}

std::optional<std::string> errorCode(std::string_view body) {
  try {
    return json::string(cloud::parseAnswer(body, cloud::Answer::receipt), "error");
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
}

URLRequest makeRequest(const std::string& domain, const std::string& clientID, const std::string& token) {
  URLRequest request;
  request.method = "POST";
  request.url = "https://" + domain + "/oauth/token";
  request.headers = {{"Content-Type", "application/x-www-form-urlencoded"}};
  request.body = form({{"grant_type", "refresh_token"}, {"client_id", clientID}, {"refresh_token", token}});
  request.timeout = requestTimeout;
  request.maximumBody = cloud::longestBody(cloud::Answer::receipt);
  // The body is a credential: no answer may send it on to another host.
  request.followRedirects = false;
  return request;
}

}  // namespace

Task<AuthRefreshOutcome> AuthRefreshClient::refresh(AuthTokens stored) const {
  if (!stored.refreshToken || stored.refreshToken->empty()) {
    co_return Rejected{"no refresh token stored (signed in before offline_access?)"};
  }
  if (!isAuthority(domain)) co_return Transient{"bad token URL for domain " + domain};

  URLResponse response;
  std::exception_ptr failure;
  try {
    response = co_await transport(makeRequest(domain, clientID, *stored.refreshToken));
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) co_return Transient{"transport: " + describe(failure)};
  if (response.status != 200) co_return classifyRefusal(response.status, response.body, stored);

  try {
    co_return Refreshed{AuthTokens::fromResponse(carriedForward(std::move(response.body), stored), clock())};
  } catch (const AuthDecodingFailure& undecodable) {
    co_return Transient{"undecodable 200 body: " + undecodable.description()};
  }
}

std::string carriedForward(std::string body, const AuthTokens& stored) {
  try {
    auto map = cloud::parseAnswer(body, cloud::Answer::receipt);
    if (stored.refreshToken && !map.contains("refresh_token")) map["refresh_token"] = *stored.refreshToken;
    if (stored.idToken && !map.contains("id_token")) map["id_token"] = *stored.idToken;
    return writeJSON(map);
  } catch (const DomainFailure&) {
    return body;
  }
}

AuthRefreshOutcome classifyRefusal(int status, std::string_view body, const AuthTokens& stored) {
  const auto text = excerpt(status, body, stored);
  const auto code = errorCode(body);
  if (status >= 400 && status <= 499 && code &&
      std::ranges::find(rejectingCodes, *code) != rejectingCodes.end()) {
    return Rejected{fmt::format("auth0 {} {}: {}", status, *code, text)};
  }
  return Transient{fmt::format("auth0 {}: {}", status, text)};
}

}  // namespace vorlane
