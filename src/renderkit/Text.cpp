#include "renderkit/Text.h"

#include <utf8proc.h>

#include <cstddef>

namespace renderkit {
namespace {

/// The length of the character at the front, 0 when it is none.
std::size_t firstCharacter(std::string_view text, utf8proc_int32_t& point) {
  const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &point);
  return length < 1 ? 0 : static_cast<std::size_t>(length);
}

bool isSpace(utf8proc_int32_t point) {
  if ((point >= '\t' && point <= '\r') || point == 0x85) return true;
  const auto category = utf8proc_category(point);
  return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL ||
         category == UTF8PROC_CATEGORY_ZP;
}

}  // namespace

bool isUTF8(std::string_view text) {
  utf8proc_int32_t point = 0;
  while (!text.empty()) {
    const auto length = firstCharacter(text, point);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string_view trimmed(std::string_view text) {
  std::size_t first = text.size(), end = 0;
  for (std::size_t at = 0; at < text.size();) {
    utf8proc_int32_t point = -1;
    auto length = firstCharacter(text.substr(at), point);
    const bool space = length > 0 && isSpace(point);
    if (length == 0) length = 1;
    if (!space) {
      if (at < first) first = at;
      end = at + length;
    }
    at += length;
  }
  return end == 0 ? std::string_view{} : text.substr(first, end - first);
}

}  // namespace renderkit
