#pragma once

#include <string>
#include <string_view>

namespace vorlane {

/// The log line for a URL that nobody takes. It names scheme and host alone:
/// path and query may hold what is private.
std::string ignoredURLLine(std::string_view url);

}  // namespace vorlane
