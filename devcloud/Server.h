#pragma once

#include "base/tasks/Task.h"
#include "devcloud/Certificates.h"
#include "devcloud/Message.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace vorlane::devcloud {

/// HTTP/1.1 on two neighbouring ports of 127.0.0.1, the first with TLS. One
/// thread serves both, so handlers and what they touch need no lock.
class Server {
 public:
  using Handler = std::function<Task<Response>(Request)>;

  /// Takes the ports, `port` and the next one; 0 takes a free pair. Nothing is
  /// accepted before run. Throws Failure naming the port that is taken.
  Server(const Certificates& certificates, std::uint16_t port);
  /// As stop.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  std::uint16_t port() const;
  std::uint16_t plainPort() const;
  /// The executor of the server's thread.
  Executor executor() const;
  bool onServerThread() const;

  /// Starts the thread. Every complete request goes to `handler`.
  void run(Handler handler);
  /// Ends at once: connections are dropped and work that
  /// waits is destroyed. What the handler uses has to exist still.
  void stop();

 private:
  struct Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace vorlane::devcloud
