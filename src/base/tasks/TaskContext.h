#pragma once

#include "base/tasks/Task.h"

#include <boost/asio/execution.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/query.hpp>
#include <boost/asio/require.hpp>

#include <memory>
#include <utility>

namespace vorlane {

/// What follows a task into everything that it spawns on its own executor.
/// Derive from it to carry something; immutable once installed.
class TaskContext {
 public:
  virtual ~TaskContext() = default;
};

/// The context of the work that this thread is running now, or null.
const std::shared_ptr<const TaskContext>& currentTaskContext();

/// Installs a context on this thread for the lifetime of the object.
class TaskContextScope {
 public:
  explicit TaskContextScope(std::shared_ptr<const TaskContext> context);
  ~TaskContextScope();
  TaskContextScope(const TaskContextScope&) = delete;
  TaskContextScope& operator=(const TaskContextScope&) = delete;

 private:
  std::shared_ptr<const TaskContext> previous_;
};

/// An executor that installs a context around each piece of work that runs on
/// it, and otherwise is the one that it wraps. A coroutine spawned on it sees
/// its context after every suspension, and so do the children that it spawns on
/// its own executor; other calls on the same threads never do.
template <class Inner>
class ContextExecutor {
 public:
  ContextExecutor(Inner inner, std::shared_ptr<const TaskContext> context)
      : inner_(std::move(inner)), context_(std::move(context)) {}

  template <class Property>
    requires boost::asio::can_query<const Inner&, Property>::value
  decltype(auto) query(const Property& property) const {
    return boost::asio::query(inner_, property);
  }

  template <class Property>
    requires boost::asio::can_require<const Inner&, Property>::value
  auto require(const Property& property) const {
    return rewrapped(boost::asio::require(inner_, property));
  }

  template <class Property>
    requires boost::asio::can_prefer<const Inner&, Property>::value
  auto prefer(const Property& property) const {
    return rewrapped(boost::asio::prefer(inner_, property));
  }

  template <class Function>
  void execute(Function&& function) const {
    inner_.execute([context = context_, function = std::forward<Function>(function)]() mutable {
      const TaskContextScope scope(std::move(context));
      std::move(function)();
    });
  }

  friend bool operator==(const ContextExecutor& a, const ContextExecutor& b) noexcept {
    return a.inner_ == b.inner_ && a.context_ == b.context_;
  }

 private:
  template <class Other>
  ContextExecutor<Other> rewrapped(Other inner) const {
    return ContextExecutor<Other>(std::move(inner), context_);
  }

  Inner inner_;
  std::shared_ptr<const TaskContext> context_;
};

/// `inner` with `context` around whatever runs on it.
Executor executorWithContext(Executor inner, std::shared_ptr<const TaskContext> context);

}  // namespace vorlane
