#include "base/tasks/TaskGroup.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/Event.h"
#include "base/tasks/TaskContext.h"

#include <fmt/format.h>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/strand.hpp>

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace vorlane {

namespace asio = boost::asio;

struct TaskGroup::State {
  /// A running task's switch; touched on the task's strand alone.
  struct Switch {
    explicit Switch(const Executor& executor) : strand(asio::make_strand(executor)) {}
    asio::strand<Executor> strand;
    asio::cancellation_signal signal;
  };

  std::mutex lock;
  bool cancelled = false;
  std::uint64_t next = 0;
  std::map<std::uint64_t, std::shared_ptr<Switch>> running;
  std::shared_ptr<Event> idle = std::make_shared<Event>();

  void ended(std::uint64_t id) {
    std::shared_ptr<Event> wake;
    {
      const std::scoped_lock hold(lock);
      running.erase(id);
      if (running.empty()) wake = std::exchange(idle, std::make_shared<Event>());
    }
    if (wake) wake->set();
  }

  bool isCancelled() {
    const std::scoped_lock hold(lock);
    return cancelled;
  }

  /// On the task's strand.
  static void begin(std::shared_ptr<State> state, std::shared_ptr<Switch> handle, std::uint64_t id,
                    std::string name, TaskBody body) {
    // A cancel that came between spawn and here has emitted into nothing.
    if (state->isCancelled()) {
      state->ended(id);
      return;
    }
    auto finished = [state, handle, id, name = std::move(name)](std::exception_ptr failure) {
      try {
        if (failure) std::rethrow_exception(failure);
      } catch (const std::exception& error) {
        if (!isCancellation(error)) shellLog(fmt::format("{} failed: {}", name, describe(error)));
      } catch (...) {
        shellLog(name + " failed");
      }
      state->ended(id);
    };
    asio::co_spawn(handle->strand, std::move(body),
                   asio::bind_cancellation_slot(handle->signal.slot(), std::move(finished)));
  }
};

TaskGroup::TaskGroup() : state_(std::make_shared<State>()) {}

TaskGroup::~TaskGroup() {
  cancel();
}

void TaskGroup::spawn(const Executor& executor, std::string name, TaskBody body) {
  auto handle = std::make_shared<State::Switch>(executor);
  std::uint64_t id = 0;
  {
    const std::scoped_lock hold(state_->lock);
    if (state_->cancelled) return;
    id = state_->next++;
    state_->running.emplace(id, handle);
  }
  // As with `spawn`, it may begin on this stack.
  const TaskContextScope none(nullptr);
  // The signal has to be connected on the strand, before anybody may emit it.
  asio::dispatch(handle->strand,
                 [state = state_, handle, id, name = std::move(name), body = std::move(body)]() mutable {
                   State::begin(std::move(state), std::move(handle), id, std::move(name), std::move(body));
                 });
}

void TaskGroup::cancel() {
  std::vector<std::shared_ptr<State::Switch>> running;
  {
    const std::scoped_lock hold(state_->lock);
    state_->cancelled = true;
    for (const auto& [id, handle] : state_->running) running.push_back(handle);
  }
  for (const auto& handle : running) {
    asio::post(handle->strand, [handle] { handle->signal.emit(asio::cancellation_type::terminal); });
  }
}

Task<> TaskGroup::join() {
  for (;;) {
    std::shared_ptr<Event> idle;
    {
      const std::scoped_lock hold(state_->lock);
      if (state_->running.empty()) co_return;
      idle = state_->idle;
    }
    co_await idle->wait();
  }
}

std::size_t TaskGroup::size() const {
  const std::scoped_lock hold(state_->lock);
  return state_->running.size();
}

}  // namespace vorlane
