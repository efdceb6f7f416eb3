#include "control/ControlServer.h"

#include "base/Failure.h"
#include "control/ControlConnection.h"
#include "control/ControlSocket.h"
#include "net/UnixSocket.h"

#include <fmt/format.h>
#include <boost/asio/local/stream_protocol.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vorlane {

namespace {

namespace asio = boost::asio;
using Socket = asio::local::stream_protocol::socket;

void removeStaleSocket(const std::string& path) {
  struct stat status{};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) throw Failure("something that is no socket stands at " + path);
  if (::unlink(path.c_str()) != 0) throw Failure(withErrno("cannot remove the old socket at " + path, errno));
}

FileDescriptor listenAt(const std::string& path) {
  const auto address = controlAddress(path);
  removeStaleSocket(path);
  return listenOnUnixSocket(address, path, S_IRUSR | S_IWUSR);
}

/// Tells the client in one attempt; it has just connected, so there is room.
void turnAway(const FileDescriptor& socket, std::size_t limit) {
  const auto line = controlRefusal(fmt::format("all {} connections are in use", limit));
  const auto sent = ::send(socket.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  static_cast<void>(sent);
}

}  // namespace

ControlServer::ControlServer(std::string path, Executor io, Executor concurrent, ControlCommands commands)
    : ControlServer(std::move(path), std::move(io), std::move(concurrent), std::move(commands), Limits()) {}

ControlServer::ControlServer(std::string path, Executor io, Executor concurrent, ControlCommands commands,
                             Limits limits)
    : path_(std::move(path)),
      io_(std::move(io)),
      settings_(std::make_shared<const ControlSettings>(
          ControlSettings{std::move(concurrent), std::move(commands), limits})) {}

ControlServer::~ControlServer() {
  stop();
}

void ControlServer::start() {
  auto listening = listenAt(path_);
  connections_ = std::make_shared<TaskGroup>();
  auto accept = [io = io_, settings = settings_,
                 weak = std::weak_ptr<TaskGroup>(connections_)](FileDescriptor accepted) {
    const auto connections = weak.lock();
    if (!connections) return;
    if (connections->size() >= settings->limits.connections) {
      return turnAway(accepted, settings->limits.connections);
    }
    auto socket = std::make_shared<Socket>(io);
    boost::system::error_code error;
    socket->assign(asio::local::stream_protocol(), accepted.get(), error);
    if (error) return;
    accepted.release();
    connections->spawn(io, "control connection",
                       [settings, socket] { return serveControlConnection(settings, socket); });
  };
  listener_ = std::make_shared<Listener>(io_, std::move(listening), "control socket", std::move(accept));
  listener_->start();
}

void ControlServer::stop() {
  if (!listener_) return;
  listener_->close();
  listener_.reset();
  connections_->cancel();
  connections_.reset();
  ::unlink(path_.c_str());
}

}  // namespace vorlane
