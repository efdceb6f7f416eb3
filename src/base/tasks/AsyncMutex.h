#pragma once

#include "base/tasks/Task.h"

#include <memory>
#include <utility>

namespace vorlane {

/// A lock for tasks, which may be held across suspensions: a task that waits for it holds no
/// thread. It is handed on in the order in which it was asked for. Callable from any
/// thread and executor.
class AsyncMutex {
 public:
  AsyncMutex();

  class Hold;
  /// Waits for the lock, which is free again when the result goes. Cancelling a task that
  /// waits throws and leaves the others waiting.
  Task<Hold> lock();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/// The lock while it is held; may outlive the mutex.
class [[nodiscard]] AsyncMutex::Hold {
 public:
  explicit Hold(std::shared_ptr<State> state) : state_(std::move(state)) {}
  Hold(Hold&&) = default;
  Hold& operator=(Hold&&) = delete;
  ~Hold();

 private:
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
