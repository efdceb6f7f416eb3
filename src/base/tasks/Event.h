#pragma once

#include "base/tasks/Task.h"

#include <memory>

namespace vorlane {

/// Becomes set once and stays so; any number of tasks may wait for it, on any
/// executor. A waiter that is cancelled leaves the others waiting. Callable
/// from any thread; may be destroyed while a task waits, which then waits until
/// it is cancelled.
class Event {
 public:
  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void set();
  bool isSet() const;
  Task<> wait();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
