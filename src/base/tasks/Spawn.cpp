#include "base/tasks/Spawn.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>

namespace vorlane {

void spawn(const Executor& executor, std::string name, TaskBody body, std::function<void()> ended) {
  boost::asio::co_spawn(executor, std::move(body),
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
