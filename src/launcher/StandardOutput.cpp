#include "launcher/StandardOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

namespace vorlane {
namespace {

bool hasRoom(int descriptor) {
  pollfd asked{descriptor, POLLOUT, 0};
  return ::poll(&asked, 1, 0) > 0;
}

}  // namespace

StandardOutput::StandardOutput(int descriptor) : descriptor_(descriptor), kind_(Kind::file) {
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) return;
  if (S_ISSOCK(status.st_mode)) kind_ = Kind::socket;
  if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return;
  const auto name = "/proc/self/fd/" + std::to_string(descriptor);
  own_ = ::open(name.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  kind_ = own_ >= 0 ? Kind::reopened : Kind::shared;
}

StandardOutput::~StandardOutput() {
  if (own_ >= 0) ::close(own_);
}

ssize_t StandardOutput::write(std::string_view bytes) const {
  switch (kind_) {
    case Kind::file:
      break;
    case Kind::socket:
      return ::send(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    case Kind::reopened:
      return ::write(own_, bytes.data(), bytes.size());
    case Kind::shared:
      if (!hasRoom(descriptor_)) {
        errno = EAGAIN;
        return -1;
      }
      // A pipe that has room at all has it for this much.
      bytes = bytes.substr(0, PIPE_BUF);
      break;
  }
  return ::write(descriptor_, bytes.data(), bytes.size());
}

void notice(std::string_view text) {
  const auto line = "vorlane-mcp-launcher: " + std::string(text) + "\n";
  if (!hasRoom(STDERR_FILENO)) return;
  // Nobody would see a failure.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace vorlane
