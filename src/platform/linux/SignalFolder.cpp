#include "platform/linux/SignalFolder.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vorlane {
namespace {

constexpr std::uint32_t watched = IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF;

/// How long a post waits for its own event when it is not there at once: a
/// child that was being forked meanwhile holds the file open until it executes.
constexpr int echoPatienceMilliseconds = 20;

}  // namespace

SignalFolder::SignalFolder(std::string path)
    : path_(std::move(path)), inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!inotify_) throw Failure(withErrno("Signals cannot be watched", errno));
  watch();
}

void SignalFolder::watch() {
  if (const int error = files::makeFolders(path_); error != 0) {
    throw Failure(withErrno(fmt::format("The signals folder {} cannot be made", path_), error));
  }
  watch_ = ::inotify_add_watch(inotify_.get(), path_.c_str(), watched | IN_ONLYDIR | IN_DONT_FOLLOW);
  if (watch_ < 0)
    throw Failure(withErrno(fmt::format("The signals folder {} cannot be watched", path_), errno));
}

bool SignalFolder::restore() {
  if (watch_ >= 0) return false;
  if (!loggedLoss_) shellLog(fmt::format("the signals folder {} had gone; it is made again", path_));
  loggedLoss_ = true;
  watch();
  return true;
}

void SignalFolder::readInto(Events& events) {
  alignas(inotify_event) char buffer[8192];
  for (;;) {
    const auto count = ::read(inotify_.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    for (ssize_t at = 0; at < count;) {
      inotify_event event{};
      std::memcpy(&event, buffer + at, sizeof event);
      const char* name = buffer + at + sizeof event;
      at += static_cast<ssize_t>(sizeof event + event.len);
      if ((event.mask & IN_Q_OVERFLOW) != 0) {
        events.anything = true;
      } else if (event.wd != watch_) {
        continue;  // the last words of a watch that has been replaced
      } else if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0) {
        // A folder that was moved away is no longer the one that others post in.
        if ((event.mask & IN_MOVE_SELF) != 0) ::inotify_rm_watch(inotify_.get(), watch_);
        watch_ = -1;
        events.anything = true;
      } else if ((event.mask & IN_CLOSE_WRITE) != 0 && event.len > 0) {
        events.files.emplace_back(name);
      }
    }
  }
}

SignalFolder::Events SignalFolder::takeEvents() {
  Events events;
  readInto(events);
  return events;
}

int SignalFolder::touch(const std::string& file) const {
  const FileDescriptor folder(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) return errno;
  return files::open(folder.get(), file, O_WRONLY | O_CREAT) ? 0 : errno;
}

void SignalFolder::post(const std::string& file, Events& events) {
  readInto(events);
  if (restore()) events.anything = true;
  int error = touch(file);
  if (error == ENOENT || error == ENOTDIR) {
    // It went after the last look.
    readInto(events);
    if (restore()) events.anything = true;
    error = touch(file);
  }
  if (error != 0) throw Failure(withErrno(fmt::format("A signal in {} cannot be posted", path_), error));

  // Closing queues the event before it returns. When others post the same signal
  // at this moment the kernel may have joined their event with ours; taking one
  // out is right all the same, since our observers run after both.
  Events after = takeEvents();
  auto echo = std::ranges::find(after.files, file);
  if (echo == after.files.end() && !after.anything) {
    pollfd waiting{.fd = inotify_.get(), .events = POLLIN, .revents = 0};
    if (::poll(&waiting, 1, echoPatienceMilliseconds) > 0) readInto(after);
    echo = std::ranges::find(after.files, file);
  }
  if (echo != after.files.end()) after.files.erase(echo);
  events.files.insert(events.files.end(), after.files.begin(), after.files.end());
  events.anything = events.anything || after.anything;
}

}  // namespace vorlane
