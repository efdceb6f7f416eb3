#include "cloud/CloudRequest.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace vorlane::cloud {
namespace {

/// What the slowest line that is worth waiting for carries, in bytes for each second.
constexpr std::size_t slowestLine = 16 << 10;
constexpr std::size_t quotedLimit = 1000;

}  // namespace

void setBearer(URLRequest& request, const std::optional<std::string>& token) {
  if (token) request.headers.emplace_back("Authorization", "Bearer " + *token);
}

void setJSONBody(URLRequest& request, std::string body) {
  request.headers.emplace_back("Content-Type", "application/json");
  request.timeout += std::chrono::seconds(body.size() / slowestLine);
  request.body = std::move(body);
}

void setJSONBody(URLRequest& request, const JSONMap& body) {
  setJSONBody(request, writeJSON(body));
}

bool isSuccess(const URLResponse& response) {
  return response.status >= 200 && response.status <= 299;
}

std::string bodyText(const URLResponse& response) {
  return isValidUTF8(response.body) ? response.body : std::string();
}

std::string quoted(std::string_view text) {
  const auto shown = text.substr(0, quotedLimit);
  std::string result = "\"";
  for (std::size_t at = 0; at < shown.size();) {
    const auto length = utf8SequenceLength(shown.substr(at));
    if (length == 0) break;  // a character that the cut went through
    const auto byte = static_cast<unsigned char>(shown[at]);
    if (byte == '"' || byte == '\\') {
      result += {'\\', shown[at]};
    } else if (byte == '\n') {
      result += "\\n";
    } else if (byte < 0x20 || byte == 0x7f) {
      result += fmt::format("\\u{{{:X}}}", byte);
    } else {
      result += shown.substr(at, length);
    }
    at += length;
  }
  if (shown.size() < text.size()) result += "…";
  return result + "\"";
}

}  // namespace vorlane::cloud
