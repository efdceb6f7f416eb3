#pragma once

#include "base/tasks/Spawn.h"

#include <cstddef>
#include <memory>

namespace vorlane {

/// Tasks that can be cancelled together and waited for. Each runs on a strand of
/// its own over the executor that it is spawned on, so that cancelling it never
/// races with it. Callable from any thread. Destroying the group cancels what
/// runs and does not wait.
class TaskGroup {
 public:
  TaskGroup();
  ~TaskGroup();
  TaskGroup(const TaskGroup&) = delete;
  TaskGroup& operator=(const TaskGroup&) = delete;

  /// Starts `body`; a failure is logged under `name`. After cancel nothing starts any more.
  void spawn(const Executor& executor, std::string name, TaskBody body);
  /// Asks every task to end at its next suspension. For good.
  void cancel();
  /// Ends when no task of the group runs.
  Task<> join();
  std::size_t size() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
