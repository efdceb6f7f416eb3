#pragma once

#include "base/paths/Paths.h"

namespace vorlane {

/// What every program of this family does first, on its only thread: private
/// files by default, no death by a closed pipe or a full file, no dump of its memory, as
/// many descriptors as the system allows, and the shared log under the program's own file
/// name.
void setUpProcess(const Paths& paths, const char* programPath);

/// SIGTERM and SIGINT end the process at once with exit 0. There is no orderly
/// stop: the database's write-ahead log makes an abrupt end safe.
void endAtOnceOnTermination();

}  // namespace vorlane
