// Feeds a connection's bytes in pieces and compares with a parse of all of them
// at once after each piece: the two must agree on when a request comes, and which.
#include "base/Text.h"
#include "net/HTTPRequestParser.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using vorlane::HTTPRequest;

std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  for (auto at = text.find(separator); at != std::string_view::npos; at = text.find(separator)) {
    pieces.emplace_back(text.substr(0, at));
    text.remove_prefix(at + separator.size());
  }
  pieces.emplace_back(text);
  return pieces;
}

/// How many bytes of body a length tells; slow and plain on purpose.
unsigned long long lengthOf(std::string text) {
  bool negative = false;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    negative = text[0] == '-';
    text.erase(0, 1);
  }
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return 0;
  while (text.size() > 1 && text[0] == '0') text.erase(0, 1);
  const std::string largest = "9223372036854775807";
  if (negative || text.size() > largest.size() || (text.size() == largest.size() && text > largest)) return 0;
  return std::stoull(text);
}

std::optional<HTTPRequest> parseWhole(const std::string& bytes) {
  const auto end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) return std::nullopt;
  const auto head = bytes.substr(0, end);
  if (!vorlane::isValidUTF8(head)) return std::nullopt;
  const auto lines = split(head, "\r\n");
  const auto words = split(lines[0], " ");
  if (words.size() < 2) return std::nullopt;

  HTTPRequest request{.method = words[0], .path = words[1], .headers = {}, .body = {}};
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto colon = lines[i].find(':');
    if (colon == std::string::npos || colon == 0 || colon == lines[i].size() - 1) continue;
    auto value = lines[i].substr(colon + 1);
    while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.erase(0, 1);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.pop_back();
    request.headers[vorlane::asciiLowercased(lines[i].substr(0, colon))] = value;
  }
  const auto length = lengthOf(request.headers["content-length"]);
  if (bytes.size() - end - 4 < length) return std::nullopt;
  request.body = bytes.substr(end + 4, length);
  return request;
}

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > 4096) return 0;
  // The first byte tells how the rest is cut: its value plus one bytes at a time.
  const std::size_t piece = std::size_t{data[0]} + 1;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);

  vorlane::HTTPRequestParser parser;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    auto found = parser.feed(std::string_view(bytes).substr(at, piece));
    auto expected = parseWhole(bytes.substr(0, at + piece));
    require(found.has_value() == expected.has_value());
    if (!found) continue;
    // The plain parse may have made an empty entry when it asked for the length.
    if (!found->headers.contains("content-length")) expected->headers.erase("content-length");
    require(found->method == expected->method && found->path == expected->path);
    require(found->headers == expected->headers && found->body == expected->body);
    break;
  }
  return 0;
}
