#pragma once

#include "base/Failure.h"
#include "base/tasks/AwaitOn.h"
#include "base/tasks/Task.h"
#include "base/tasks/TaskContext.h"

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {

/// Sleeps on the caller's executor. Cancelling it throws.
Task<> sleepFor(std::chrono::milliseconds duration);

/// Sleeps for an interval; injected where a test has to control time.
using Sleeper = std::function<Task<>(std::chrono::milliseconds)>;

/// The result of `work`, or TimeoutFailure(`what`) when it has not ended in
/// time; it is then cancelled and waited for, so `work` has to heed
/// cancellation. A failure of `work` comes out at once. Runs on a strand over the
/// caller's executor, so that the timer and the work never race.
template <class T>
Task<T> withTimeout(std::chrono::milliseconds limit, std::string what, std::function<Task<T>()> work) {
  using namespace boost::asio::experimental::awaitable_operators;
  const auto strand = boost::asio::make_strand(co_await boost::asio::this_coro::executor);
  co_return co_await awaitOn(strand, [limit, what = std::move(what), work = std::move(work)]() -> Task<T> {
    // `||` waits for the first success, so the work has to succeed even when it fails.
    std::exception_ptr failure;
    std::optional<T> value;
    auto caught = [&]() -> Task<> {
      try {
        value.emplace(co_await work());
      } catch (...) {
        failure = std::current_exception();
      }
    };
    const auto first = co_await (caught() || sleepFor(limit));
    if (value) co_return std::move(*value);
    if (first.index() == 1) throw TimeoutFailure(what);
    std::rethrow_exception(failure);
  });
}

/// Runs `body` on `executor` (a strand, most often) and comes back to the
/// caller's executor with its result. The caller's context, or none, goes along:
/// work that a strand runs in one go for several callers never sees another's.
template <class Body>
auto onExecutor(Executor executor, Body body) -> decltype(body()) {
  co_return co_await awaitOn(executorWithContext(std::move(executor), currentTaskContext()), std::move(body));
}

}  // namespace vorlane
