#include "platform/InstanceLock.h"

#include "base/Failure.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

namespace vorlane {
namespace {

[[noreturn]] void fail(const std::string& path, int error) {
  throw Failure(withErrno(fmt::format("The instance lock {} cannot be used", path), error));
}

}  // namespace

std::optional<InstanceLock> InstanceLock::lock(const std::string& path, int operation) {
  for (;;) {
    FileDescriptor fd = files::open(AT_FDCWD, path, O_RDWR | O_CREAT);
    if (!fd) fail(path, errno);
    struct stat ours{};
    if (::fstat(fd.get(), &ours) != 0) fail(path, errno);
    if (!S_ISREG(ours.st_mode)) throw Failure(fmt::format("The instance lock {} is no plain file.", path));

    while (::flock(fd.get(), operation) != 0) {
      if (errno == EWOULDBLOCK) return std::nullopt;
      if (errno != EINTR) fail(path, errno);
    }
    // While we waited somebody may have removed the file or put another in its
    // place; a lock on the old one would keep nobody out.
    struct stat present{};
    const bool same = ::lstat(path.c_str(), &present) == 0 && present.st_dev == ours.st_dev &&
                      present.st_ino == ours.st_ino;
    if (!same) continue;

    if (::ftruncate(fd.get(), 0) == 0) files::writeAll(fd.get(), fmt::format("{}\n", ::getpid()));
    return InstanceLock(std::make_shared<FileDescriptor>(std::move(fd)));
  }
}

std::optional<InstanceLock> InstanceLock::tryAcquire(const std::string& path) {
  return lock(path, LOCK_EX | LOCK_NB);
}

InstanceLock InstanceLock::acquire(const std::string& path) {
  return *lock(path, LOCK_EX);
}

}  // namespace vorlane
