#include "tools/ledgerly/LedgerlyWebClient.h"

#include "auth/AccountMark.h"
#include "base/JSONArguments.h"
#include "base/Text.h"
#include "mcp/MCPRequestContext.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace vorlane {
namespace {

constexpr std::size_t quotedCharacters = 200;

std::optional<JSONMap> parsedObject(std::string_view text) {
  try {
    return parseJSONMap(text);
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
}

/// What the API says of each part that failed, where it names parts.
std::string failuresOf(const JSONMap& answer) {
  std::string lines;
  const auto* failures = json::array(answer, "failures");
  if (!answer.contains("entries") || failures == nullptr) return lines;
  for (const auto& failure : *failures) {
    if (!failure.is_object()) continue;
    const auto error = json::string(failure.get_object(), "error");
    if (error) lines += "\n- " + json::stringOr(failure.get_object(), "name") + ": " + *error;
  }
  return lines;
}

std::string assistantText(std::string_view step, int status, std::string_view body) {
  const auto answer = parsedObject(body);
  if (answer && json::string(*answer, "code") == "MCP_ACCESS_REQUIRED")
    return "MCP access is not turned on for this account.";
  if (status == 401) return "Ledgerly did not accept this sign-in. Sign in again from the Vorlane menu.";
  if (status == 429) return "Too many requests. Try again in a few minutes.";
  if (answer) {
    if (const auto error = json::nonEmptyString(*answer, "error")) return *error + failuresOf(*answer);
  }
  std::string text(step);
  text += " → HTTP " + std::to_string(status) + " ";
  return text += firstCharacters(body, quotedCharacters);
}

Task<std::optional<std::string>> tokenFor(BearerSource bearer, AccountMark mark,
                                          LedgerlyWebClient::WithoutToken rule) {
  using CallFailure = MCPRequestContext::Failure;
  auto token = co_await bearer();
  if (!token && rule == LedgerlyWebClient::WithoutToken::refused)
    throw CallFailure(CallFailure::Case::signedOut);
  // Whoever signed in meanwhile is not who asked. What runs under no call, as filing does,
  // has no fence and is told by the account alone.
  MCPRequestContext::checkCurrentAccount();
  if (token && !mark.holds()) throw CallFailure(CallFailure::Case::accountChanged);
  co_return token;
}

}  // namespace

LedgerlyWebClient::Failure::Failure(const std::string& step, int status, const std::string& body)
    : AnswerFailure(assistantText(step, status, body), step, status, body) {}

Task<JSONMap> LedgerlyWebClient::post(std::string path, JSONMap body, std::string ownerID,
                                      WithoutToken rule) const {
  auto request = api.request("POST", path);
  cloud::setJSONBody(request, body);
  request.headers.emplace_back("Accept", "application/json");
  request.retryOnStaleConnection =
      rule != WithoutToken::refused;  // what the service must not do twice is among these
  // Nothing is awaited between the token and the sending, so that its account is still the one asked for.
  cloud::setBearer(request,
                   co_await tokenFor(api.bearer, AccountMark(api.account, std::move(ownerID)), rule));
  const auto response = co_await api.send(std::move(request));
  const auto step = "POST " + path;
  if (!cloud::isSuccess(response)) throw Failure(step, response.status, cloud::bodyText(response));
  auto answer = parsedObject(response.body);
  if (!answer) throw Failure(step, response.status, "the answer was not JSON");
  co_return std::move(*answer);
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  for (; count > 0 && end < text.size(); --count) {
    end += std::max<std::size_t>(utf8SequenceLength(text.substr(end)), 1);
  }
  return text.substr(0, end);
}

}  // namespace vorlane
