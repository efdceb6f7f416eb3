#include "base/tasks/Timing.h"

namespace vorlane {

Task<> sleepFor(std::chrono::milliseconds duration) {
  boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor, duration);
  co_await timer.async_wait(boost::asio::use_awaitable);
}

}  // namespace vorlane
