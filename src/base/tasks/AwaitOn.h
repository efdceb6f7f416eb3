#pragma once

#include "base/tasks/Task.h"
#include "base/tasks/TaskContext.h"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <exception>
#include <memory>
#include <utility>

namespace vorlane {

namespace detail {

template <class Result>
struct ChildEnded {
  using Signature = void(std::exception_ptr, Result);
};
template <>
struct ChildEnded<void> {
  using Signature = void(std::exception_ptr);
};

}  // namespace detail

/// Runs `body` as a coroutine on `executor` and comes back to the caller's
/// executor with its result; cancelling the caller cancels it, on `executor`.
/// Give a strand when it may be cancelled.
///
/// This is co_spawn with use_awaitable, but for one fault of that: there a
/// cancellation that is on its way to the other executor while the child ends
/// arrives at freed memory. Here the signal lives until it has arrived.
template <class Body>
auto awaitOn(Executor executor, Body body) -> decltype(body()) {
  namespace asio = boost::asio;
  using Result = typename decltype(body())::value_type;
  using Signature = typename detail::ChildEnded<Result>::Signature;
  auto initiate = [](auto handler, Executor childExecutor, Body childBody) {
    auto signal = std::make_shared<asio::cancellation_signal>();
    if (auto slot = asio::get_associated_cancellation_slot(handler); slot.is_connected()) {
      slot.assign([childExecutor, signal](asio::cancellation_type type) {
        asio::dispatch(childExecutor, [signal, type] { signal->emit(type); });
      });
    }
    const Executor own = asio::get_associated_executor(handler, childExecutor);
    auto ended = [handler = std::move(handler), signal, context = currentTaskContext()]<class... Values>(
                     std::exception_ptr failure, Values... values) mutable {
      // The child's end may be dispatched on its own stack, where its context is installed.
      const TaskContextScope scope(context);
      std::move(handler)(std::move(failure), std::move(values)...);
    };
    const auto slot = signal->slot();
    asio::co_spawn(childExecutor, std::move(childBody),
                   asio::bind_cancellation_slot(slot, asio::bind_executor(own, std::move(ended))));
  };
  co_return co_await asio::async_initiate<const asio::use_awaitable_t<>, Signature>(
      std::move(initiate), asio::use_awaitable, std::move(executor), std::move(body));
}

}  // namespace vorlane
