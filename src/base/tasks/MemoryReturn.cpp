#include "base/tasks/MemoryReturn.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <malloc.h>

#include <chrono>
#include <cstddef>

namespace vorlane {
namespace {

/// So that memory is back in less than ten seconds, and a busy agent seldom looks.
constexpr std::chrono::seconds interval{3};
/// Free memory that is worth giving back; less is soon used again.
constexpr std::size_t worthReturning = std::size_t{2} << 20;

}  // namespace

struct MemoryReturn::Timer {
  boost::asio::steady_timer timer;
};

MemoryReturn::MemoryReturn(Executor timers, Executor worker)
    : worker_(std::move(worker)), timer_(new Timer{boost::asio::steady_timer(std::move(timers))}) {}

MemoryReturn::~MemoryReturn() = default;

void MemoryReturn::begin() {
  if (!waiting_.exchange(true)) wait();
}

/// By whoever has set `waiting_`, who alone uses the timer.
void MemoryReturn::wait() {
  timer_->timer.expires_after(interval);
  timer_->timer.async_wait([weak = weak_from_this()](boost::system::error_code error) {
    const auto self = weak.lock();
    if (error || !self) return;
    boost::asio::post(self->worker_, [self] { self->look(); });
  });
}

void MemoryReturn::look() {
  const bool worked = noted_.exchange(false);
  if (::mallinfo2().fordblks > worthReturning) ::malloc_trim(0);
  if (worked) return wait();
  waiting_ = false;
  // Work that came just now has seen that somebody waits.
  if (noted_) begin();
}

}  // namespace vorlane
