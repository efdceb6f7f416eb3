#pragma once

#include "base/tasks/Task.h"
#include "mcp/AgentBearerStore.h"
#include "mcp/HTTPConnection.h"
#include "mcp/HTTPRouter.h"
#include "mcp/Listener.h"
#include "mcp/MCPServer.h"
#include "mcp/RenderHTTPRoutes.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorlane {

/// A small HTTP/1.1 server on 127.0.0.1: `POST /rpc` behind the bearer token, and
/// the render routes. One request per connection, no keep-alive, no chunked
/// bodies, no TLS, no limits.
///
/// Accepting, reading and parsing run on `io`, where nothing blocks; each complete
/// request is a task of its own on `concurrent`, which also sends the answer. A
/// task holds the transport until it has answered; a connection that is still
/// sending when the transport is gone is closed instead of answered.
///
/// Made with make_shared; both executors outlive it.
class HTTPTransport : public std::enable_shared_from_this<HTTPTransport> {
 public:
  /// `server` is null while MCP access is off. Port 0 lets the system choose.
  HTTPTransport(std::shared_ptr<MCPServer> server, std::shared_ptr<AgentBearerStore> bearerStore,
                std::uint16_t port, Executor io, Executor concurrent);
  ~HTTPTransport();
  HTTPTransport(const HTTPTransport&) = delete;
  HTTPTransport& operator=(const HTTPTransport&) = delete;

  /// Before start.
  void setRenderRoutes(std::shared_ptr<RenderHTTPRoutes> routes);

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
  const Executor concurrent_;
  HTTPRouter router_;
  const std::shared_ptr<HTTPConnection::OpenCount> open_;
  std::shared_ptr<const HTTPConnection::Handler> handler_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace vorlane
