#pragma once

#include "base/tasks/Poller.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Task.h"
#include "net/DescriptorReserve.h"
#include "net/HTTPConnection.h"
#include "net/HTTPRoutes.h"
#include "net/Listener.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vorlane {

/// A small HTTP/1.1 server on 127.0.0.1 for a table of routes. One request per
/// connection, no keep-alive, no chunked bodies, no TLS, no limits.
///
/// The thread of the poller that accepts a connection reads its request, carries it out up to
/// the first thing that it has to wait for, and sends the answer. A task
/// holds the transport until it has answered; a connection that is still
/// sending its request when the transport is gone is closed instead of answered.
///
/// Made with make_shared; executors and poller outlive it.
class HTTPTransport : public std::enable_shared_from_this<HTTPTransport> {
 public:
  /// Starts the task of one request on the calling thread.
  using StartRequest = std::function<void(std::string name, TaskBody body)>;

  /// Port 0 lets the system choose. `io` is for timers.
  HTTPTransport(HTTPRoutes routes, std::uint16_t port, Executor io, Poller& poller, StartRequest startRequest,
                std::shared_ptr<DescriptorReserve> reserve);
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
  std::size_t activeConnections() const { return settings_->open; }

 private:
  void serve(std::shared_ptr<HTTPConnection> connection, HTTPRequest request);

  std::uint16_t port_;
  const Executor io_;
  Poller& poller_;
  const StartRequest startRequest_;
  const HTTPRoutes routes_;
  const std::shared_ptr<HTTPSettings> settings_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace vorlane
