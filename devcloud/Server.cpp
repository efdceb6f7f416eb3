#include "devcloud/Server.h"

#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "devcloud/Connection.h"

#include <fmt/format.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <cstdio>
#include <limits>
#include <thread>

namespace vorlane::devcloud {
namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

constexpr int portPairAttempts = 100;

tcp::acceptor listenOn(asio::io_context& context, std::uint16_t port, boost::system::error_code& error) {
  tcp::acceptor acceptor(context);
  acceptor.open(tcp::v4(), error);
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind({asio::ip::address_v4::loopback(), port}, error);
  if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
  return acceptor;
}

struct Listeners {
  tcp::acceptor secure;
  tcp::acceptor plain;
};

Listeners openListeners(asio::io_context& context, std::uint16_t wanted) {
  constexpr std::uint16_t last = std::numeric_limits<std::uint16_t>::max();
  if (wanted == last) throw Failure(fmt::format("port {} has no next port", wanted));
  for (int attempt = 1;; ++attempt) {
    boost::system::error_code error;
    tcp::acceptor secure = listenOn(context, wanted, error);
    std::uint16_t port = wanted;
    if (!error) port = secure.local_endpoint().port();
    if (!error && port < last) {
      tcp::acceptor plain = listenOn(context, static_cast<std::uint16_t>(port + 1), error);
      if (!error) return {std::move(secure), std::move(plain)};
      ++port;
    }
    if (wanted != 0 || attempt == portPairAttempts) {
      throw Failure(fmt::format("cannot listen on 127.0.0.1:{}: {}", port, error.message()));
    }
  }
}

}  // namespace

struct Server::Loop {
  Loop(const Certificates& certificates, std::uint16_t port)
      : tls(makeTLSContext(certificates)), listeners(openListeners(context, port)) {
    securePort = listeners.secure.local_endpoint().port();
    plainPort = listeners.plain.local_endpoint().port();
  }

  Task<> accept(tcp::acceptor& acceptor, bool secure) {
    for (;;) {
      boost::system::error_code error;
      tcp::socket socket = co_await acceptor.async_accept(asio::redirect_error(asio::use_awaitable, error));
      if (error) {
        // Out of descriptors, most likely: they come back when connections end.
        co_await sleepFor(std::chrono::milliseconds(50));
        continue;
      }
      spawn(context.get_executor(), "connection",
            [this, secure, socket = std::make_shared<tcp::socket>(std::move(socket))]() -> Task<> {
              return secure ? serveSecure(std::move(*socket), *tls, handler)
                            : servePlain(std::move(*socket), handler);
            });
    }
  }

  void work() {
    for (;;) {
      try {
        context.run();
        return;
      } catch (const std::exception& error) {
        fmt::print(stderr, "vorlane-devcloud: {}\n", describe(error));
      }
    }
  }

  Handler handler;
  // Destroyed before what its pending work refers to above it.
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard = asio::make_work_guard(context);
  std::unique_ptr<TLSContext, void (*)(TLSContext*)> tls;
  Listeners listeners;
  std::uint16_t securePort = 0;
  std::uint16_t plainPort = 0;
  std::thread thread;
};

Server::Server(const Certificates& certificates, std::uint16_t port)
    : loop_(std::make_unique<Loop>(certificates, port)) {}

Server::~Server() {
  stop();
}

std::uint16_t Server::port() const {
  return loop_->securePort;
}

std::uint16_t Server::plainPort() const {
  return loop_->plainPort;
}

Executor Server::executor() const {
  return loop_->context.get_executor();
}

bool Server::onServerThread() const {
  return loop_->context.get_executor().running_in_this_thread();
}

void Server::run(Handler handler) {
  Loop* const loop = loop_.get();
  loop->handler = std::move(handler);
  spawn(executor(), "accepting", [loop] { return loop->accept(loop->listeners.secure, true); });
  spawn(executor(), "accepting", [loop] { return loop->accept(loop->listeners.plain, false); });
  loop->thread = std::thread([loop] { loop->work(); });
}

void Server::stop() {
  loop_->context.stop();
  if (loop_->thread.joinable()) loop_->thread.join();
}

}  // namespace vorlane::devcloud
