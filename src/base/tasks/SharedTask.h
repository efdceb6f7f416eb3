#pragma once

#include "base/tasks/Event.h"
#include "base/tasks/Spawn.h"

#include <boost/asio/co_spawn.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace vorlane {

/// One running piece of work with any number of awaiters. It runs to its end
/// whether or not anybody still waits: cancelling an awaiter does not touch it.
/// `value` may be awaited on any executor, before and after the end.
template <class T>
class SharedTask {
 public:
  static std::shared_ptr<SharedTask> start(const Executor& executor, std::function<Task<T>()> body) {
    auto shared = std::make_shared<SharedTask>();
    boost::asio::co_spawn(executor, std::move(body), [shared](std::exception_ptr failure, T value) {
      // Written before the event is set, read after: no lock is needed.
      shared->failure_ = failure;
      if (!failure) shared->value_.emplace(std::move(value));
      shared->ended_.set();
    });
    return shared;
  }

  /// The result, or the failure that the work ended with. The caller keeps the
  /// object alive while it waits.
  Task<T> value() {
    co_await ended_.wait();
    if (failure_) std::rethrow_exception(failure_);
    co_return *value_;
  }

 private:
  Event ended_;
  std::exception_ptr failure_;
  std::optional<T> value_;
};

}  // namespace vorlane
