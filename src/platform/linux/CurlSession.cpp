#include "platform/linux/CurlSession.h"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdlib>

namespace vorlane {
namespace {

namespace asio = boost::asio;

/// Hosts that no proxy is asked for: what the environment says, and this machine.
std::string hostsWithoutProxy() {
  const char* named = std::getenv("no_proxy");
  if (named == nullptr) named = std::getenv("NO_PROXY");
  const std::string listed = named == nullptr ? "" : named;
  if (listed == "*") return listed;
  const std::string loopback = "localhost,127.0.0.0/8,::1";
  return listed.empty() ? loopback : listed + "," + loopback;
}

/// Starts the transfer and hands its end to the waiting coroutine, on the
/// coroutine's own executor.
struct Initiate {
  std::weak_ptr<CurlDriver> driver;
  std::shared_ptr<CurlTransfer> transfer;

  template <class Handler>
  void operator()(Handler handler) const {
    const auto alive = driver.lock();
    auto slot = asio::get_associated_cancellation_slot(handler);
    if (slot.is_connected()) {
      slot.assign([driver = driver, transfer = std::weak_ptr(transfer)](asio::cancellation_type) {
        const auto running = driver.lock();
        const auto cut = transfer.lock();
        if (running && cut) running->cancel(cut);
      });
    }
    auto work = asio::make_work_guard(handler);
    transfer->onFinish([handler = std::move(handler), work = std::move(work), slot](
                           std::exception_ptr failure, URLResponse response) mutable {
      const auto executor = work.get_executor();
      asio::post(executor, [handler = std::move(handler), work = std::move(work), slot,
                            failure = std::move(failure), response = std::move(response)]() mutable {
        slot.clear();
        std::move(handler)(std::move(failure), std::move(response));
      });
    });
    alive->start(transfer);
  }
};

}  // namespace

CurlSession::CurlSession(const std::optional<std::string>& caFile)
    : trust_(caFile), noProxy_(hostsWithoutProxy()), driver_(std::make_shared<CurlDriver>()) {}

Task<URLResponse> CurlSession::send(URLRequest request) {
  auto transfer = std::make_shared<CurlTransfer>(std::move(request), trust_, noProxy_);
  co_return co_await asio::async_initiate<const asio::use_awaitable_t<>&,
                                          void(std::exception_ptr, URLResponse)>(
      Initiate{driver_, std::move(transfer)}, asio::use_awaitable);
}

}  // namespace vorlane
