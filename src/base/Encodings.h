#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Two lower-case hexadecimal digits for each byte.
std::string hexText(std::string_view bytes);

/// Standard base64, padded.
std::string base64Encoded(std::string_view bytes);
/// Strict standard base64, padded; nothing for any other text.
std::optional<std::string> base64Decoded(std::string_view text);
/// The URL-safe alphabet without padding, as JSON Web Tokens use it.
std::string base64URLEncoded(std::string_view bytes);

}  // namespace vorlane
