#pragma once

#include <string_view>

namespace vorlane {

/// Ends the process over a mistake in our own code, with `message` on standard
/// error and in the shell log. Never for bad input.
[[noreturn]] void programmingFault(std::string_view message);

}  // namespace vorlane
