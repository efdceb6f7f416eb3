#pragma once

#include "base/tasks/Task.h"
#include "base/tasks/TaskContext.h"

#include <boost/asio/execution.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/query.hpp>
#include <boost/asio/require.hpp>

#include <memory>
#include <utility>

namespace vorlane {

/// An executor that installs a context around each piece of work, as ContextExecutor does, and
/// whose work may also begin on a thread that is none of its own: while a Start lasts there,
/// what may run at once runs there. What comes later runs on the executor that it wraps.
class InlineExecutor {
 public:
  InlineExecutor(const Executor& inner, std::shared_ptr<const TaskContext> context)
      : state_(std::make_shared<const State>(State{
            boost::asio::prefer(inner, boost::asio::execution::blocking.possibly),
            boost::asio::require(inner, boost::asio::execution::blocking.never), std::move(context)})) {}

  /// Lets work of `executor` begin on this thread, with its context, for the object's lifetime.
  class Start {
   public:
    explicit Start(const InlineExecutor& executor)
        : context_(executor.state_->context), outer_(std::exchange(starting_, executor.state_.get())) {}
    ~Start() { starting_ = outer_; }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;

   private:
    const TaskContextScope context_;
    const void* const outer_;
  };

  boost::asio::execution_context& query(boost::asio::execution::context_t) const {
    return boost::asio::query(state_->possibly, boost::asio::execution::context);
  }
  static constexpr boost::asio::execution::blocking_t query(boost::asio::execution::blocking_t) {
    return boost::asio::execution::blocking.possibly;
  }
  InlineExecutor require(boost::asio::execution::blocking_t::possibly_t) const { return {state_, false}; }
  InlineExecutor require(boost::asio::execution::blocking_t::never_t) const { return {state_, true}; }

  template <class Function>
  void execute(Function&& function) const {
    if (!later_ && starting_ == state_.get()) return std::forward<Function>(function)();
    const auto& inner = later_ ? state_->never : state_->possibly;
    inner.execute([state = state_, function = std::forward<Function>(function)]() mutable {
      const TaskContextScope scope(state->context);
      std::move(function)();
    });
  }

  friend bool operator==(const InlineExecutor&, const InlineExecutor&) noexcept = default;

 private:
  struct State {
    Executor possibly, never;
    std::shared_ptr<const TaskContext> context;
  };

  InlineExecutor(std::shared_ptr<const State> state, bool later) : state_(std::move(state)), later_(later) {}

  /// The executor whose work may begin on this thread now.
  static thread_local constinit const void* starting_;

  std::shared_ptr<const State> state_;
  /// Never on the caller's stack.
  bool later_ = false;
};

}  // namespace vorlane
