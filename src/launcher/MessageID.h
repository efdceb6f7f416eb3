#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// The text that a JSON string stands for, given what lies between its quotes.
/// Nothing when an escape is none, a surrogate stands alone or a control
/// character stands bare.
std::optional<std::string> decodedJSONText(std::string_view raw);

/// One text for all the ways in which an id can be written, so that an answer
/// finds its request: the agent writes ids anew, truncates numbers to 64-bit
/// integers and takes a truth value for a number. Nothing when `raw` is neither
/// string, number, truth value nor null.
std::optional<std::string> messageIDKey(std::string_view raw);

}  // namespace vorlane
