#pragma once

#include "base/tasks/Task.h"

#include <functional>
#include <memory>
#include <string>

namespace vorlane {

class TaskContext;

/// Work to be spawned. The callable is kept alive until its coroutine ends, so
/// its captures may be used throughout.
using TaskBody = std::function<Task<>()>;

/// Starts `body` on `executor` and goes on. A failure ends in the log as
/// "NAME failed: DESCRIPTION"; a cancellation ends silently.
void spawn(const Executor& executor, std::string name, TaskBody body);

/// The same, and `ended` is called once when the work has ended, on `executor`.
void spawn(const Executor& executor, std::string name, TaskBody body, std::function<void()> ended);

/// Starts `body` on this thread, which need not be one of `executor`'s, and comes back when it
/// waits for the first time or has ended; it goes on, and spawns, on `executor`. `context`
/// is its own throughout. A hop to another thread would cost more than most calls.
void spawnHere(const Executor& executor, std::shared_ptr<const TaskContext> context, std::string name,
               TaskBody body);

}  // namespace vorlane
