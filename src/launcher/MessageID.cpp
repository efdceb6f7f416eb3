#include "launcher/MessageID.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace vorlane {
namespace {

void appendUTF8(std::string& out, std::uint32_t point) {
  const auto byte = [&out](std::uint32_t bits) { out += static_cast<char>(bits); };
  if (point < 0x80) return byte(point);
  if (point < 0x800) {
    byte(0xC0 | point >> 6);
  } else {
    if (point < 0x10000) {
      byte(0xE0 | point >> 12);
    } else {
      byte(0xF0 | point >> 18);
      byte(0x80 | (point >> 12 & 0x3F));
    }
    byte(0x80 | (point >> 6 & 0x3F));
  }
  byte(0x80 | (point & 0x3F));
}

/// Takes "u" and four hexadecimal digits off the front of `raw`.
std::optional<std::uint32_t> takeUnit(std::string_view& raw) {
  if (raw.size() < 5 || raw[0] != 'u') return std::nullopt;
  std::uint32_t unit = 0;
  const char* end = raw.data() + 5;
  if (std::from_chars(raw.data() + 1, end, unit, 16).ptr != end) return std::nullopt;
  raw.remove_prefix(5);
  return unit;
}

std::optional<std::uint32_t> takeCodePoint(std::string_view& raw) {
  const auto first = takeUnit(raw);
  if (!first || *first < 0xD800 || *first > 0xDFFF) return first;
  if (*first > 0xDBFF || !raw.starts_with('\\')) return std::nullopt;
  raw.remove_prefix(1);
  const auto second = takeUnit(raw);
  if (!second || *second < 0xDC00 || *second > 0xDFFF) return std::nullopt;
  return 0x10000 + ((*first - 0xD800) << 10) + (*second - 0xDC00);
}

std::size_t digitsAt(std::string_view text, std::size_t at) {
  return std::min(text.find_first_not_of("0123456789", at), text.size()) - at;
}

struct NumberShape {
  bool valid = false;
  bool integer = true;
};

NumberShape shapeOfNumber(std::string_view text) {
  NumberShape shape;
  std::size_t at = text.starts_with('-') ? 1 : 0;
  const auto whole = digitsAt(text, at);
  if (whole == 0 || (whole > 1 && text[at] == '0')) return shape;
  at += whole;
  if (at < text.size() && text[at] == '.') {
    const auto paths = digitsAt(text, at + 1);
    if (paths == 0) return shape;
    shape.integer = false;
    at += 1 + paths;
  }
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    const auto paths = digitsAt(text, at);
    if (paths == 0) return shape;
    shape.integer = false;
    at += paths;
  }
  shape.valid = at == text.size();
  return shape;
}

std::int64_t integerOf(const std::string& number, bool integer) {
  using Limits = std::numeric_limits<std::int64_t>;
  // What lies beyond 64 bits becomes the nearest that does not.
  if (integer) return std::strtoll(number.c_str(), nullptr, 10);
  constexpr double bound = 9223372036854775808.0;
  const double value = std::strtod(number.c_str(), nullptr);
  if (value >= bound) return Limits::max();
  if (value < -bound) return Limits::min();
  return static_cast<std::int64_t>(value);
}

}  // namespace

std::optional<std::string> decodedJSONText(std::string_view raw) {
  constexpr std::string_view escapes = "\"\\/bfnrt", meanings = "\"\\/\b\f\n\r\t";
  std::string text;
  while (!raw.empty()) {
    const char c = raw.front();
    raw.remove_prefix(1);
    if (static_cast<unsigned char>(c) < 0x20) return std::nullopt;
    if (c != '\\') {
      text += c;
      continue;
    }
    if (raw.starts_with('u')) {
      const auto point = takeCodePoint(raw);
      if (!point) return std::nullopt;
      appendUTF8(text, *point);
      continue;
    }
    const auto escape = raw.empty() ? std::string_view::npos : escapes.find(raw.front());
    if (escape == std::string_view::npos) return std::nullopt;
    text += meanings[escape];
    raw.remove_prefix(1);
  }
  return text;
}

std::optional<std::string> messageIDKey(std::string_view raw) {
  if (raw == "null") return std::string(raw);
  if (raw == "true" || raw == "false") return raw == "true" ? "1" : "0";
  if (raw.starts_with('"')) {
    if (raw.size() < 2 || raw.back() != '"') return std::nullopt;
    auto text = decodedJSONText(raw.substr(1, raw.size() - 2));
    // No number begins with a quote, so the two kinds never meet.
    if (text) text->insert(0, 1, '"');
    return text;
  }
  const auto shape = shapeOfNumber(raw);
  if (!shape.valid) return std::nullopt;
  return std::to_string(integerOf(std::string(raw), shape.integer));
}

}  // namespace vorlane
