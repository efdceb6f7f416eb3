#include "net/UnixSocket.h"

#include "base/Failure.h"

#include <fmt/format.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace vorlane {

sockaddr_un unixAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // One byte stays for the terminating zero.
  constexpr auto room = sizeof address.sun_path - 1;
  if (path.empty()) throw Failure("the socket has no path");
  if (path.size() > room) {
    throw Failure(
        fmt::format("the socket's path has {} bytes, the system takes {}: {}", path.size(), room, path));
  }
  path.copy(address.sun_path, room);
  return address;
}

FileDescriptor listenOnUnixSocket(const sockaddr_un& address, const std::string& path,
                                  std::optional<mode_t> mode) {
  const auto require = [&](int result) {
    if (result < 0) throw Failure(withErrno("cannot listen at " + path, errno));
  };
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  require(socket.get());
  // The file that bind makes takes the socket's own mode, so there is no moment
  // in which others could connect.
  if (mode) require(::fchmod(socket.get(), *mode));
  require(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
  if (::listen(socket.get(), SOMAXCONN) != 0) {
    const int error = errno;
    ::unlink(address.sun_path);
    throw Failure(withErrno("cannot listen at " + path, error));
  }
  return socket;
}

}  // namespace vorlane
