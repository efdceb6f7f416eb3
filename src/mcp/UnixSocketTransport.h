#pragma once

#include "mcp/MCPServer.h"
#include "mcp/SocketConnection.h"
#include "net/Listener.h"

#include <memory>
#include <string>

namespace vorlane {

/// Serves the MCP server to local assistants, by way of the stdio launcher: one JSON-RPC
/// message a line, in each direction. It asks for no bearer token; the folder that
/// the socket lies in lets no other user in. Used on the main executor.
class UnixSocketTransport final {
 public:
  /// `io` is for timers. Executors and poller outlive the object. Nothing is opened yet.
  UnixSocketTransport(std::shared_ptr<MCPServer> server, std::string socketPath, Executor io,
                      Executor concurrent, Poller& poller, std::shared_ptr<DescriptorReserve> reserve);
  ~UnixSocketTransport();
  UnixSocketTransport(const UnixSocketTransport&) = delete;
  UnixSocketTransport& operator=(const UnixSocketTransport&) = delete;

  /// Takes the place of whatever stands at the path: the caller holds the
  /// container's lock, so nobody listens there. Throws Failure.
  void start();
  /// Also cuts the connections, since a launcher that is left on one would never
  /// come back to the next server.
  void stop();
  std::size_t activeConnections() const { return settings_->open; }
  std::string path() const { return socketPath_; }

 private:
  class Connections;

  const std::string socketPath_;
  const Executor io_;
  const std::shared_ptr<SocketSettings> settings_;
  std::shared_ptr<Connections> connections_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace vorlane
