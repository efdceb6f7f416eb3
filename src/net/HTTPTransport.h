#pragma once

#include "base/tasks/Task.h"
#include "net/HTTPConnection.h"
#include "net/HTTPRoutes.h"
#include "net/Listener.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace vorlane {

/// A small HTTP/1.1 server on 127.0.0.1 for a table of routes. One request per
/// connection, no keep-alive, no chunked bodies, no TLS, no limits.
///
/// Accepting, reading and parsing run on `io`, where nothing blocks; each complete
/// request is a task of its own on the executor made for it, which also sends the answer. A
/// task holds the transport until it has answered; a connection that is still
/// sending when the transport is gone is closed instead of answered.
///
/// Made with make_shared; both executors outlive it.
class HTTPTransport : public std::enable_shared_from_this<HTTPTransport> {
 public:
  /// Gives the executor that the task of one request is spawned on.
  using RequestExecutor = std::function<Executor()>;

  /// Port 0 lets the system choose.
  HTTPTransport(HTTPRoutes routes, std::uint16_t port, Executor io, RequestExecutor executorForRequest);
  ~HTTPTransport();
  HTTPTransport(const HTTPTransport&) = delete;
  HTTPTransport& operator=(const HTTPTransport&) = delete;

  /// Binds and listens; on return clients can connect. Throws Failure, with the
  /// address in its description, when the port is taken or there is no socket.
  void start();
  /// Closes the listener, after which the port is free. Open connections finish
  /// by themselves. From any thread; a second call does nothing.
  void stop();

  /// The port that is listened on, once started.
  std::uint16_t port() const { return port_; }
  /// Open connections, those that have not sent their request included. From any thread.
  std::size_t activeConnections() const { return *open_; }

 private:
  void accept(FileDescriptor socket);
  void serve(std::shared_ptr<HTTPConnection> connection, HTTPRequest request);

  std::uint16_t port_;
  const Executor io_;
  const RequestExecutor executorForRequest_;
  const HTTPRoutes routes_;
  const std::shared_ptr<HTTPConnection::OpenCount> open_;
  std::shared_ptr<const HTTPConnection::Handler> handler_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace vorlane
