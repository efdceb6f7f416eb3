#pragma once

#include <optional>
#include <string>

namespace vorlane {

/// What the person calls this computer, as the desktop shows it; else its name in the
/// network. Nothing when the system knows neither.
std::optional<std::string> hostName();

}  // namespace vorlane
