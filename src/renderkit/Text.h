#pragma once

#include <string_view>

namespace renderkit {

/// True when the bytes are valid UTF-8.
bool isUTF8(std::string_view text);

/// Without the white space at both ends, as people mean it: every space of Unicode counts.
std::string_view trimmed(std::string_view text);

}  // namespace renderkit
