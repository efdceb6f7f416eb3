#pragma once

#include "base/tasks/Task.h"

#include <atomic>
#include <memory>

namespace vorlane {

/// Gives memory that was freed back to the system a few seconds after there was work: the
/// allocator alone keeps what a burst left behind for good. Nothing happens while nothing
/// does. Made with make_shared.
class MemoryReturn : public std::enable_shared_from_this<MemoryReturn> {
 public:
  /// `timers` is the I/O executor; the memory is given back on `worker`, which it may hold up
  /// for some milliseconds.
  MemoryReturn(Executor timers, Executor worker);
  ~MemoryReturn();
  MemoryReturn(const MemoryReturn&) = delete;
  MemoryReturn& operator=(const MemoryReturn&) = delete;

  /// Something is being done that may leave memory behind. From any thread; costs next to nothing.
  void note() {
    if (!noted_.load(std::memory_order_relaxed) && !noted_.exchange(true)) begin();
  }

 private:
  struct Timer;
  void begin();
  void wait();
  void look();

  const Executor worker_;
  const std::unique_ptr<Timer> timer_;
  /// There was work since the last look.
  std::atomic<bool> noted_ = false;
  /// The timer runs, or a look is under way.
  std::atomic<bool> waiting_ = false;
};

}  // namespace vorlane
