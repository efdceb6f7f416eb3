#pragma once

#include <cstddef>
#include <string>

namespace vorlane {

/// The assistants' Unix socket, as the lifecycle sees it. Used on the main executor.
class SocketTransport {
 public:
  virtual ~SocketTransport() = default;
  /// Binds and listens. Throws Failure.
  virtual void start() = 0;
  /// Closes the listener and what is connected, and removes the socket file.
  virtual void stop() = 0;
  virtual std::size_t activeConnections() const = 0;
  virtual std::string path() const = 0;
};

}  // namespace vorlane
