#pragma once

#include "base/tasks/Task.h"

#include <functional>
#include <string>

namespace vorlane {

/// Work to be spawned. The callable is kept alive until its coroutine ends, so
/// its captures may be used throughout.
using TaskBody = std::function<Task<>()>;

/// Starts `body` on `executor` and goes on. A failure ends in the log as
/// "NAME failed: DESCRIPTION"; a cancellation ends silently.
void spawn(const Executor& executor, std::string name, TaskBody body);

/// The same, and `ended` is called once when the work has ended, on `executor`.
void spawn(const Executor& executor, std::string name, TaskBody body, std::function<void()> ended);

}  // namespace vorlane
