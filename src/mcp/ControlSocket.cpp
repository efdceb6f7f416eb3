#include "mcp/ControlSocket.h"

#include "base/Failure.h"

#include <fmt/format.h>

namespace vorlane {

sockaddr_un controlAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // One byte stays for the terminating zero.
  constexpr auto room = sizeof address.sun_path - 1;
  if (path.empty()) throw Failure("the control socket has no path");
  if (path.size() > room) {
    throw Failure(fmt::format("the control socket's path is {} bytes long and may have {}: {}", path.size(),
                              room, path));
  }
  path.copy(address.sun_path, room);
  return address;
}

}  // namespace vorlane
