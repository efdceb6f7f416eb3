#include "mcp/UnixSocketTransport.h"

#include "net/UnixSocket.h"

#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace vorlane {

/// The connections of one run of the listener, for the moment in which they are cut.
class UnixSocketTransport::Connections {
 public:
  explicit Connections(std::shared_ptr<SocketSettings> settings) : settings_(std::move(settings)) {}

  void accept(FileDescriptor socket) {
    const auto connection = std::make_shared<SocketConnection>(settings_, std::move(socket));
    {
      const std::scoped_lock hold(lock_);
      if (cut_) return;
      // Those that have ended go when the list would grow, which keeps it in proportion.
      if (list_.size() == list_.capacity()) {
        std::erase_if(list_, [](const auto& each) { return each.expired(); });
      }
      list_.push_back(connection);
    }
    connection->start();
  }

  /// From any thread.
  void cut() {
    const std::scoped_lock hold(lock_);
    cut_ = true;
    for (const auto& each : list_) {
      if (const auto connection = each.lock()) connection->cut();
    }
    list_.clear();
  }

 private:
  const std::shared_ptr<SocketSettings> settings_;
  std::mutex lock_;
  bool cut_ = false;
  std::vector<std::weak_ptr<SocketConnection>> list_;
};

UnixSocketTransport::UnixSocketTransport(std::shared_ptr<MCPServer> server, std::string socketPath,
                                         Executor io, Executor concurrent, Poller& poller,
                                         std::shared_ptr<DescriptorReserve> reserve)
    : socketPath_(std::move(socketPath)),
      io_(std::move(io)),
      settings_(std::make_shared<SocketSettings>(std::move(server), poller, std::move(concurrent),
                                                 std::move(reserve))) {}

UnixSocketTransport::~UnixSocketTransport() {
  stop();
}

void UnixSocketTransport::start() {
  stop();
  const auto address = unixAddress(socketPath_);
  // Usually there is nothing; what cannot be removed makes the bind fail, which tells.
  ::unlink(socketPath_.c_str());
  auto socket = listenOnUnixSocket(address, socketPath_, std::nullopt);
  connections_ = std::make_shared<Connections>(settings_);
  auto accept = [weak = std::weak_ptr(connections_)](FileDescriptor accepted) {
    if (const auto connections = weak.lock()) connections->accept(std::move(accepted));
  };
  try {
    listener_ = std::make_shared<Listener>(
        io_, settings_->poller, std::move(socket), "mcp: UDS", std::move(accept),
        [reserve = settings_->reserve] { reserve->makeRoom(DescriptorReserve::several); });
  } catch (...) {
    ::unlink(socketPath_.c_str());  // nobody listens behind it
    throw;
  }
  listener_->start();
}

void UnixSocketTransport::stop() {
  if (!listener_) return;
  listener_->close();
  listener_.reset();
  ::unlink(socketPath_.c_str());
  connections_->cut();
  connections_.reset();
}

}  // namespace vorlane
