#include "base/tasks/Spawn.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/TaskContext.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/defer.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlane {

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
                          if (failure) {
                            try {
                              std::rethrow_exception(failure);
                            } catch (const std::exception& error) {
                              if (!isCancellation(error)) {
                                shellLog(fmt::format("{} failed: {}", name, describe(error)));
                              }
                            } catch (...) {
                              shellLog(name + " failed");
                            }
                          }
                          if (ended) ended();
                        });
}

void spawn(const Executor& executor, std::string name, TaskBody body) {
  spawn(executor, std::move(name), std::move(body), nullptr);
}

}  // namespace vorlane
