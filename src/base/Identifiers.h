#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// A new random UUID in the usual 36 characters, in upper or in lower case.
std::string newUppercaseUUID();
std::string newLowercaseUUID();

/// `text` in lower case when it is a UUID in the 8-4-4-4-12 form, else nothing.
std::optional<std::string> canonicalUUID(std::string_view text);

/// A decimal integer: an optional sign and digits, nothing else. Overflow and
/// any other text give nothing.
std::optional<long long> decimalInteger(std::string_view text);

}  // namespace vorlane
