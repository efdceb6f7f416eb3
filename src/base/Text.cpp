#include "base/Text.h"

#include <utf8proc.h>

#include <cstdint>
#include <cstring>

namespace vorlane {
namespace {

struct Decoded {
  std::int32_t codepoint;
  std::size_t length;  // 0 when there is no valid sequence
};

Decoded decode(std::string_view text) {
  const auto length = utf8SequenceLength(text);
  if (length == 0) return {0, 0};
  utf8proc_int32_t codepoint = 0;
  utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(length), &codepoint);
  return {codepoint, length};
}

bool isWhiteSpace(std::int32_t codepoint) {
  if (codepoint >= 0x09 && codepoint <= 0x0d) return true;
  if (codepoint == 0x85) return true;
  switch (utf8proc_category(codepoint)) {
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return true;
    default:
      return false;
  }
}

bool isUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

}  // namespace

std::size_t utf8SequenceLength(std::string_view text) {
  if (text.empty()) return 0;
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xc0) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4 || !continues(1)) return 0;
  if (first < 0xe0) return 2;
  const unsigned second = byte(1);
  if (first < 0xf0) {
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
    return continues(2) ? 3 : 0;
  }
  if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
  return continues(2) && continues(3) ? 4 : 0;
}

bool isValidUTF8(std::string_view text) {
  while (!text.empty()) {
    if (text.size() >= 8) {
      std::uint64_t block;
      std::memcpy(&block, text.data(), 8);
      if ((block & 0x8080808080808080) == 0) {
        text.remove_prefix(8);
        continue;
      }
    }
    const auto length = utf8SequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string validUTF8(std::string text) {
  if (isValidUTF8(text)) return text;
  std::string out;
  for (std::string_view rest = text; !rest.empty();) {
    const auto length = utf8SequenceLength(rest);
    if (length == 0) {
      out += "\xef\xbf\xbd";
      rest.remove_prefix(1);
    } else {
      out += rest.substr(0, length);
      rest.remove_prefix(length);
    }
  }
  return out;
}

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const auto [codepoint, length] = decode(text);
    if (length == 0) {
      out += text[0];
      text.remove_prefix(1);
      continue;
    }
    utf8proc_uint8_t bytes[4];
    const auto count = utf8proc_encode_char(utf8proc_tolower(codepoint), bytes);
    out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
    text.remove_prefix(length);
  }
  return out;
}

std::string trimmed(std::string_view text) {
  for (;;) {
    const auto [codepoint, length] = decode(text);
    if (length == 0 || !isWhiteSpace(codepoint)) break;
    text.remove_prefix(length);
  }
  for (;;) {
    auto start = text.size();
    while (start > 0 && text.size() - start < 4) {
      --start;
      if ((static_cast<unsigned char>(text[start]) & 0xc0) != 0x80) break;
    }
    const auto [codepoint, length] = decode(text.substr(start));
    if (length == 0 || length != text.size() - start || !isWhiteSpace(codepoint)) break;
    text.remove_suffix(length);
  }
  return std::string(text);
}

std::string asciiLowercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::string percentEncoded(std::string_view text) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    if (isUnreserved(c)) {
      out += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out += '%';
      out += hex[byte >> 4];
      out += hex[byte & 15];
    }
  }
  return out;
}

}  // namespace vorlane
