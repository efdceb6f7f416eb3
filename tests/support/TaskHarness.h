#pragma once

#include "base/Failure.h"
#include "base/tasks/Task.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <chrono>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <utility>

namespace vorlane::testing {

/// A task that a test has started: whether it has ended, and how.
template <class T>
struct Started {
  bool ended = false;
  std::optional<T> value;
  std::exception_ptr failure;
  boost::asio::cancellation_signal cancellation;

  void cancel() { cancellation.emit(boost::asio::cancellation_type::terminal); }
  /// Whether it ended because it was cancelled, in either form.
  bool wasCancelled() const {
    try {
      if (failure) std::rethrow_exception(failure);
    } catch (const std::exception& error) {
      return isCancellation(error);
    } catch (...) {
    }
    return false;
  }
  /// The failure as an `E`, or null when it ended otherwise.
  template <class E>
  std::optional<E> failureAs() const {
    try {
      if (failure) std::rethrow_exception(failure);
    } catch (const E& error) {
      return error;
    } catch (...) {
    }
    return std::nullopt;
  }
};

/// Runs tasks step by step on the test's own thread: `settle` goes on until
/// everything waits for something that the test has still to do. No test built
/// on it can depend on timing.
class TaskHarness {
 public:
  Executor executor() { return context_.get_executor(); }

  template <class T>
  std::shared_ptr<Started<T>> start(std::function<Task<T>()> body) {
    auto started = std::make_shared<Started<T>>();
    boost::asio::co_spawn(context_, std::move(body),
                          boost::asio::bind_cancellation_slot(started->cancellation.slot(),
                                                              [started](std::exception_ptr failure, T value) {
                                                                started->ended = true;
                                                                started->failure = failure;
                                                                if (!failure)
                                                                  started->value.emplace(std::move(value));
                                                              }));
    return started;
  }

  void settle() {
    context_.restart();
    context_.poll();
  }

  template <class T>
  T run(std::function<Task<T>()> body) {
    const auto started = start<T>(std::move(body));
    settle();
    if (started->failure) std::rethrow_exception(started->failure);
    if (!started->ended) throw Failure("the task still waits");
    return std::move(*started->value);
  }

 private:
  boost::asio::io_context context_;
};

/// Runs a task on an executor that has threads of its own and waits for its end.
template <class T>
T await(const Executor& executor, std::function<Task<T>()> body) {
  auto future = boost::asio::co_spawn(executor, std::move(body), boost::asio::use_future);
  if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready) throw Failure("the task hangs");
  return future.get();
}

}  // namespace vorlane::testing
