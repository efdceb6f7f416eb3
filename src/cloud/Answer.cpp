#include "cloud/Answer.h"

#include <fmt/format.h>

namespace vorlane::cloud {
namespace {

struct Limits {
  std::size_t bytes;
  /// A value of a tree takes up to a hundred bytes. The largest sheets have some ten thousand.
  std::size_t values;
};

constexpr Limits limitsOf(Answer kind) {
  switch (kind) {
    case Answer::receipt:
      return {std::size_t{1} << 20, 50'000};
    case Answer::list:
      return {std::size_t{16} << 20, 500'000};
    case Answer::document:
      break;
  }
  return {std::size_t{64} << 20, 500'000};
}

/// The values of a document, or somewhat more: each stands behind one of these marks or before
/// them all. What is no JSON is counted too, and refused by the parser.
std::size_t countValues(std::string_view text) {
  std::size_t values = 1;
  for (std::size_t at = 0; at < text.size(); ++at) {
    switch (text[at]) {
      case ',':
      case '[':
      case '{':
        ++values;
        break;
      case '"':
        for (++at; at < text.size() && text[at] != '"'; ++at) {
          if (text[at] == '\\') ++at;
        }
        break;
      default:
        break;
    }
  }
  return values;
}

}  // namespace

std::size_t longestBody(Answer kind) {
  return limitsOf(kind).bytes;
}

void requireFewValues(std::string_view body, Answer kind) {
  const auto most = limitsOf(kind).values;
  // Each takes a byte at least, and one more that sets it apart.
  if (body.size() / 2 < most || countValues(body) <= most) return;
  throw JSONParseFailure(fmt::format("invalid JSON: more than {} values", most));
}

JSONMap parseAnswer(std::string_view body, Answer kind) {
  requireFewValues(body, kind);
  return parseJSONMap(body);
}

}  // namespace vorlane::cloud
