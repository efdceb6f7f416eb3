#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// The text that a JSON string stands for, given what lies between its quotes.
/// Nothing for an invalid escape, a lone surrogate or a
/// control character that is not escaped.
std::optional<std::string> decodedJSONText(std::string_view raw);

/// One text for all the ways in which an id can be written, so that an answer
/// finds its request: the agent rewrites ids, truncates numbers to 64-bit
/// integers and takes a truth value for a number. Nothing when `raw` is neither
/// string, number, truth value nor null.
std::optional<std::string> messageIDKey(std::string_view raw);

}  // namespace vorlane
