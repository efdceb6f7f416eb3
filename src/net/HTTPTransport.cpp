#include "net/HTTPTransport.h"

#include "base/Failure.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

namespace vorlane {
namespace {

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// Listens on 127.0.0.1 and puts the real port into `port`.
FileDescriptor listenOnLoopback(std::uint16_t& port) {
  const auto require = [&](int result) {
    if (result < 0) throw Failure(withErrno(fmt::format("cannot listen on 127.0.0.1:{}", port), errno));
  };
  FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  require(socket.get());
  // Connections that the last listener has closed do not keep the port. It does
  // not let two listeners share it.
  const int yes = 1;
  require(::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
  // A connection is handed over when its first bytes are there, so that most
  // requests are read without a wait. One that sends nothing comes a second later.
  // It is a help, never a condition.
  const int seconds = 1;
  ::setsockopt(socket.get(), IPPROTO_TCP, TCP_DEFER_ACCEPT, &seconds, sizeof seconds);

  auto address = loopback(port);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  require(::bind(socket.get(), generic, size));
  require(::listen(socket.get(), SOMAXCONN));
  require(::getsockname(socket.get(), generic, &size));
  port = ntohs(address.sin_port);
  return socket;
}

}  // namespace

HTTPTransport::HTTPTransport(HTTPRoutes routes, std::uint16_t port, Executor io, Poller& poller,
                             StartRequest startRequest, std::shared_ptr<DescriptorReserve> reserve)
    : port_(port),
      io_(io),
      poller_(poller),
      startRequest_(std::move(startRequest)),
      routes_(std::move(routes)),
      settings_(std::make_shared<HTTPSettings>(nullptr, nullptr, poller, std::move(io), std::move(reserve))) {
}

HTTPTransport::~HTTPTransport() {
  stop();
}

void HTTPTransport::start() {
  auto socket = listenOnLoopback(port_);
  settings_->answerToHead = [weak = weak_from_this()](const HTTPRequest& head) -> std::optional<HTTPMessage> {
    const auto self = weak.lock();
    // Nobody is left to answer: it is closed without a word.
    return self ? self->routes_.answerToHead(head) : HTTPMessage();
  };
  settings_->serve = [weak = weak_from_this()](std::shared_ptr<HTTPConnection> connection,
                                               HTTPRequest request) {
    if (const auto self = weak.lock()) self->serve(std::move(connection), std::move(request));
  };
  listener_ = std::make_shared<Listener>(
      io_, poller_, std::move(socket), "mcp: HTTP",
      [settings = settings_](FileDescriptor accepted) {
        std::make_shared<HTTPConnection>(settings, std::move(accepted))->read();
      },
      [reserve = settings_->reserve] { reserve->makeRoom(DescriptorReserve::several); });
  listener_->start();
}

void HTTPTransport::stop() {
  if (listener_) listener_->close();
}

void HTTPTransport::serve(std::shared_ptr<HTTPConnection> connection, HTTPRequest request) {
  startRequest_("mcp: HTTP request",
                [self = shared_from_this(), connection = std::move(connection),
                 request = std::move(request)]() mutable -> Task<> {
                  connection->answer(co_await self->routes_.answer(std::move(request)));
                });
}

}  // namespace vorlane
