#include "platform/linux/Files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace vorlane::files {

FileDescriptor open(int folder, const std::string& name, int flags, mode_t mode) {
  for (;;) {
    FileDescriptor fd(::openat(folder, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode));
    if (fd || errno != EINTR) return fd;
  }
}

int makeFolders(const std::string& folder) {
  if (::mkdir(folder.c_str(), 0700) == 0) return 0;
  if (errno == ENOENT) {
    const auto slash = folder.find_last_of('/');
    if (slash == std::string::npos || slash == 0) return ENOENT;
    if (const int error = makeFolders(folder.substr(0, slash)); error != 0) return error;
    if (::mkdir(folder.c_str(), 0700) == 0) return 0;
  }
  const int error = errno;
  // Another process may have made it meanwhile; and a folder on a read-only
  // file system is reported as such although it is there.
  struct stat status{};
  if (::stat(folder.c_str(), &status) != 0) return error;
  return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

int readAll(int fd, std::size_t limit, std::string& bytes) {
  struct stat status{};
  if (::fstat(fd, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  bytes.clear();
  char piece[16384];
  for (;;) {
    const auto count = ::read(fd, piece, sizeof piece);
    if (count == 0) return 0;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes.append(piece, static_cast<std::size_t>(count));
    if (bytes.size() > limit) return EFBIG;
  }
}

int writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

int replace(int folder, const std::string& name, const std::string& temporary, std::string_view bytes,
            FileDescriptor* written) {
  // What an interrupted writer left under the name may be anything.
  ::unlinkat(folder, temporary.c_str(), 0);
  FileDescriptor fd = open(folder, temporary, O_WRONLY | O_CREAT | O_EXCL);
  if (!fd) return errno;
  int error = writeAll(fd.get(), bytes);
  if (error == 0 && ::fsync(fd.get()) != 0) error = errno;
  if (error == 0 && ::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlinkat(folder, temporary.c_str(), 0);
    return error;
  }
  ::fsync(folder);
  if (written != nullptr) *written = std::move(fd);
  return 0;
}

}  // namespace vorlane::files
