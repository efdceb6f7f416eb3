#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlane {

/// The length in bytes of the UTF-8 sequence that `text` begins with, 1 to 4,
/// or 0 when it begins with none (overlong forms and surrogates included).
std::size_t utf8SequenceLength(std::string_view text);

bool isValidUTF8(std::string_view text);

/// `text` as it is when it is valid UTF-8; otherwise with each offending byte
/// replaced by U+FFFD.
std::string validUTF8(std::string text);

/// Lower case as Unicode has it, character by character (É becomes é), without
/// regard to a locale. Invalid bytes stay as they are.
std::string lowercased(std::string_view text);

/// Without the white space and line ends, as Unicode has them (U+00A0 among
/// them), at both ends.
std::string trimmed(std::string_view text);

/// ASCII letters alone in lower case: for header names, schemes and the like.
std::string asciiLowercased(std::string_view text);

/// `text` with everything but ASCII letters, digits and "-._~" percent-encoded.
std::string percentEncoded(std::string_view text);

}  // namespace vorlane
