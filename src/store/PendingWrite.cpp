#include "store/PendingWrite.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <utility>

namespace vorlane {
namespace {

void callAll(const PendingWrite::Calls& calls) noexcept {
  for (const auto& call : calls) {
    try {
      call();
    } catch (const std::exception& error) {
      shellLog("store: a call after a commit failed: " + describe(error));
    }
  }
}

}  // namespace

void PendingWrite::finish(std::exception_ptr failure, Calls afterCommit) {
  work_ = nullptr;  // its captures go on this thread, before the asker goes on
  Calls forsaken;
  {
    const std::scoped_lock hold(lock_);
    failure_ = std::move(failure);
    if (left_) {
      forsaken = std::move(afterCommit);
    } else {
      afterCommit_ = std::move(afterCommit);
    }
  }
  finished_ = true;
  finished_.notify_all();
  event_.set();
  callAll(forsaken);
}

void PendingWrite::leave() noexcept {
  Calls calls;
  {
    const std::scoped_lock hold(lock_);
    left_ = true;
    calls = std::exchange(afterCommit_, {});
  }
  callAll(calls);
}

void PendingWrite::wait() {
  finished_.wait(false);
  leave();
  if (failure_) std::rethrow_exception(failure_);
}

Task<> PendingWrite::ended(std::shared_ptr<PendingWrite> write) {
  struct Leaving {
    PendingWrite& write;
    ~Leaving() { write.leave(); }
  };
  {
    // Also when the wait is cancelled, or its coroutine is destroyed.
    const Leaving leaving{*write};
    co_await write->event_.wait();
  }
  if (write->failure_) std::rethrow_exception(write->failure_);
}

}  // namespace vorlane
