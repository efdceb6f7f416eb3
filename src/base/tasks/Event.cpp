#include "base/tasks/Event.h"

#include "base/Failure.h"

#include <boost/asio/experimental/concurrent_channel.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <mutex>
#include <vector>

namespace vorlane {
namespace {

namespace asio = boost::asio;
using Channel = asio::experimental::concurrent_channel<void(boost::system::error_code)>;

}  // namespace

struct Event::State {
  std::mutex lock;
  bool set = false;
  std::vector<std::weak_ptr<Channel>> waiters;
};

Event::Event() : state_(std::make_shared<State>()) {}
Event::~Event() = default;

void Event::set() {
  std::vector<std::weak_ptr<Channel>> waiters;
  {
    const std::scoped_lock hold(state_->lock);
    if (std::exchange(state_->set, true)) return;
    waiters.swap(state_->waiters);
  }
  for (const auto& waiter : waiters) {
    // Room for one message is kept in each channel, so this never fails.
    if (const auto channel = waiter.lock()) channel->try_send(boost::system::error_code());
  }
}

bool Event::isSet() const {
  const std::scoped_lock hold(state_->lock);
  return state_->set;
}

Task<> Event::wait() {
  const auto state = state_;
  const auto channel = std::make_shared<Channel>(co_await asio::this_coro::executor, 1);
  {
    const std::scoped_lock hold(state->lock);
    if (state->set) co_return;
    std::erase_if(state->waiters, [](const auto& waiter) { return waiter.expired(); });
    state->waiters.push_back(channel);
  }
  boost::system::error_code ec;
  co_await channel->async_receive(asio::redirect_error(asio::use_awaitable, ec));
  // A channel has an error of its own for this, which nobody else would know.
  if (ec) throw CancelledFailure();
}

}  // namespace vorlane
