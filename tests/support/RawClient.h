#pragma once

#include "base/Failure.h"
#include "base/FileDescriptor.h"
#include "control/ControlSocket.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <thread>

namespace vorlane {

/// A plain blocking client of a port or a Unix socket that can do everything wrong.
class RawClient {
 public:
  /// Makes the socket only: connecting needs no further descriptor.
  RawClient() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  explicit RawClient(std::uint16_t port) : RawClient() { connect(port); }
  explicit RawClient(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    connectTo(controlAddress(path));
  }

  bool connect(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return connectTo(address);
  }

  /// False when the other end takes no more.
  bool send(std::string_view bytes) {
    return std::cmp_equal(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), bytes.size());
  }
  void endSending() { ::shutdown(socket_.get(), SHUT_WR); }

  /// Everything up to the end of the stream; a failure stands at its end.
  std::string receiveAll() {
    std::string all, piece(65536, '\0');
    ssize_t count = 0;
    while ((count = ::recv(socket_.get(), piece.data(), piece.size(), 0)) > 0) {
      all.append(piece, 0, static_cast<std::size_t>(count));
    }
    return count == 0 ? all : all + withErrno(" receiving failed", errno);
  }
  /// The next line with its newline; less at the end of the stream.
  std::string receiveLine() {
    while (received_.find('\n') == std::string::npos) {
      std::string piece(65536, '\0');
      const auto count = ::recv(socket_.get(), piece.data(), piece.size(), 0);
      if (count <= 0) break;
      received_.append(piece, 0, static_cast<std::size_t>(count));
    }
    const auto length = received_.find('\n');
    auto line = received_.substr(0, length == std::string::npos ? length : length + 1);
    received_.erase(0, line.size());
    return line;
  }
  int descriptor() const { return socket_.get(); }

 private:
  template <class Address>
  bool connectTo(const Address& address) {
    return ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }

  FileDescriptor socket_;
  std::string received_;
};

/// Waits until it holds, for half a minute at most.
template <class Condition>
bool eventually(Condition holds) {
  int tries = 30'000;
  while (!holds() && --tries > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return tries > 0;
}

}  // namespace vorlane
