#pragma once

#include "base/tasks/Task.h"

#include <functional>
#include <memory>
#include <string>

namespace vorlane {

/// One thread for work that blocks, made when the first piece arrives. Pieces
/// run one at a time in the order in which they came. Callable from any thread.
/// The destructor waits for the piece that runs and drops what still waits.
class BlockingThread {
 public:
  explicit BlockingThread(std::string name);
  ~BlockingThread();
  BlockingThread(const BlockingThread&) = delete;
  BlockingThread& operator=(const BlockingThread&) = delete;

  /// Queues a piece of work, which must not throw. Throws std::system_error, with
  /// nothing queued, when the system has no thread to give.
  void post(std::function<void()> work);
  bool isCurrentThread() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
