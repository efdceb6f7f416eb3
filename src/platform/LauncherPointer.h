#pragma once

#include <string>

namespace vorlane {

/// Writes the path of the agent's container to where the stdio launcher looks for it,
/// since assistants start the launcher with almost no environment. One line, replaced by
/// rename. Throws Failure naming the path when it cannot be written.
void writeLauncherPointer(const std::string& path, const std::string& container);

}  // namespace vorlane
