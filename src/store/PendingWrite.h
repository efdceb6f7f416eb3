#pragma once

#include "base/tasks/Event.h"
#include "store/Database.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace vorlane {

/// One write on its way through the writer thread, shared by that thread and by
/// whoever asked for it. The asker may give up waiting: the write then runs to its
/// end all the same, and the writer thread makes the calls that follow the commit.
class PendingWrite {
 public:
  using Work = std::move_only_function<void(Database&)>;
  using Calls = std::vector<std::function<void()>>;

  explicit PendingWrite(Work work) : work_(std::move(work)) {}

  // For the writer thread.
  std::chrono::steady_clock::time_point asked() const { return asked_; }
  void perform(Database& database) { work_(database); }
  /// Ends the write; `failure` is null after a commit.
  void finish(std::exception_ptr failure, Calls afterCommit);

  // For the asker: by a thread or by a task. Both throw what the write failed with.
  void wait();
  static Task<> ended(std::shared_ptr<PendingWrite> write);

 private:
  /// Takes the asker's leave, and makes the calls after the commit if it has come.
  void leave() noexcept;

  const std::chrono::steady_clock::time_point asked_ = std::chrono::steady_clock::now();
  Work work_;
  Event event_;
  std::mutex lock_;
  std::atomic<bool> finished_ = false;
  bool left_ = false;
  std::exception_ptr failure_;
  Calls afterCommit_;
};

}  // namespace vorlane
