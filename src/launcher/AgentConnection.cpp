#include "launcher/AgentConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace vorlane {
namespace {

/// The container in the pointer file; empty when there is none.
std::string pointedTo(const std::string& pointer) {
  const int file = ::open(pointer.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return {};
  char bytes[PATH_MAX + 1];
  const auto size = ::read(file, bytes, sizeof bytes);
  ::close(file);
  std::string line(bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  line.resize(std::min(line.find('\n'), line.size()));
  return line.starts_with('/') ? line : std::string();
}

/// For connecting, and for an answer of the agent about itself.
constexpr timeval patience{.tv_sec = 1, .tv_usec = 0};

bool setPatience(int socket) {
  return ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) == 0 &&
         ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0;
}

/// The text of the answer's "reason", as it stands between its quotes.
std::string reasonIn(std::string_view answer) {
  constexpr std::string_view key = R"("reason":")";
  const auto start = answer.find(key);
  if (start == std::string_view::npos) return {};
  const auto text = answer.substr(start + key.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return std::string(text.substr(0, i));
    if (text[i] == '\\') ++i;
  }
  return {};
}

/// connect(2) to the socket in the folder. Through a descriptor of the folder
/// where the path is longer than an address has room for.
int connectSocket(int socket, const std::string& folder, const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const auto attempt = [&](const std::string& name) {
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  };
  if (path.size() < sizeof address.sun_path) return attempt(path);
  const int opened = ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return -1;
  const int status = attempt("/proc/self/fd/" + std::to_string(opened) + path.substr(folder.size()));
  const int error = errno;
  ::close(opened);
  errno = error;
  return status;
}

}  // namespace

std::vector<std::string> AgentConnection::containers() const {
  std::vector<std::string> found;
  if (!paths_.containerNamed && paths_.launcherPointer) {
    if (auto pointed = pointedTo(*paths_.launcherPointer); !pointed.empty()) found.push_back(pointed);
  }
  if (paths_.container && std::ranges::find(found, *paths_.container) == found.end()) {
    found.push_back(*paths_.container);
  }
  return found;
}

bool AgentConnection::connect() {
  close();
  reason_ = "HOME is not set and no container was named";
  return std::ranges::any_of(containers(), [this](const auto& container) { return connectTo(container); });
}

bool AgentConnection::connectTo(const std::string& container) {
  Paths paths;
  paths.container = container;
  const auto path = paths.assistantsSocket();
  socket_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  // The limit holds for connecting; sending and receiving never wait.
  if (socket_ >= 0 && setPatience(socket_) && connectSocket(socket_, container, path) == 0) return true;
  reason_ = path + ": " + std::strerror(errno);
  close();
  return false;
}

std::string AgentConnection::reasonOfAgent() const {
  constexpr std::string_view question = "{\"command\":\"reason\"}\n";
  for (const auto& container : containers()) {
    Paths paths;
    paths.container = container;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (socket >= 0 && setPatience(socket) && connectSocket(socket, container, paths.controlSocket()) == 0 &&
        ::send(socket, question.data(), question.size(), MSG_NOSIGNAL) > 0) {
      char room[4096];
      for (ssize_t count = 0; answer.size() < sizeof room && !answer.contains('\n') &&
                              (count = ::recv(socket, room, sizeof room, 0)) > 0;) {
        answer.append(room, static_cast<std::size_t>(count));
      }
    }
    if (socket >= 0) ::close(socket);
    if (auto reason = reasonIn(answer); !reason.empty()) return reason;
  }
  return {};
}

void AgentConnection::close() {
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
}

ssize_t AgentConnection::send(std::string_view bytes) const {
  return ::send(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

ssize_t AgentConnection::receive(char* room, std::size_t size) const {
  return ::recv(socket_, room, size, MSG_DONTWAIT);
}

}  // namespace vorlane
