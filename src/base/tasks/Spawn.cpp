#include "base/tasks/Spawn.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/InlineExecutor.h"
#include "base/tasks/Moment.h"
#include "base/tasks/TaskContext.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/defer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlane {

namespace {

void logFailure(const std::string& name, const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    if (!isCancellation(error)) shellLog(fmt::format("{} failed: {}", name, describe(error)));
  } catch (...) {
    shellLog(name + " failed");
  }
}

}  // namespace

void spawn(const Executor& executor, std::string name, TaskBody body, std::function<void()> ended) {
  auto whole = [body = std::move(body)]() -> Task<> {
    co_await body();
    // Work that never waited would end by a post, which wakes another thread for nothing.
    co_await boost::asio::defer(boost::asio::use_awaitable);
  };
  // It may begin on this stack: it must not find the context of the code that spawns it,
  // unless its own executor carries that.
  const TaskContextScope none(nullptr);
  boost::asio::co_spawn(executor, std::move(whole),
                        [name = std::move(name), ended = std::move(ended)](std::exception_ptr failure) {
                          if (failure) logFailure(name, failure);
                          if (ended) ended();
                        });
}

void spawn(const Executor& executor, std::string name, TaskBody body) {
  spawn(executor, std::move(name), std::move(body), nullptr);
}

void spawnHere(const Executor& executor, std::shared_ptr<const TaskContext> context, std::string name,
               TaskBody body) {
  auto whole = [body = std::move(body)]() -> Task<> {
    co_await body();
    // As above; here it ends on this stack.
    co_await boost::asio::dispatch(boost::asio::use_awaitable);
  };
  const InlineExecutor here(executor, std::move(context));
  const InlineExecutor::Start start(here);
  const Moment moment;
  boost::asio::co_spawn(Executor(here), std::move(whole),
                        [name = std::move(name)](std::exception_ptr failure) {
                          if (failure) logFailure(name, failure);
                        });
}

}  // namespace vorlane
