#include "control/ControlSocket.h"

#include "base/Failure.h"
#include "base/FileDescriptor.h"
#include "net/UnixSocket.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <map>
#include <mutex>

namespace vorlane {

namespace {

/// A short name for a path that is too long for an address: by way of its folder, which is
/// opened once and stays open for as long as the process lives, since the address has to
/// lead there until the socket is removed.
std::string shortened(const std::string& path) {
  static std::mutex lock;
  static std::map<std::string, FileDescriptor> folders;
  const auto slash = path.rfind('/');
  const auto folder = path.substr(0, slash == std::string::npos ? 0 : slash);
  const std::scoped_lock hold(lock);
  auto& opened = folders[folder];
  if (!opened) opened.reset(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw Failure(withErrno("the control socket's folder " + folder + " cannot be opened", errno));
  return fmt::format("/proc/self/fd/{}/{}", opened.get(), path.substr(slash + 1));
}

}  // namespace

sockaddr_un controlAddress(const std::string& path) {
  return unixAddress(path.size() < sizeof(sockaddr_un::sun_path) ? path : shortened(path));
}

}  // namespace vorlane
