#include "devcloud/Files.h"

#include "base/Failure.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>

namespace vorlane::devcloud {
bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::optional<std::string> readFile(const std::filesystem::path& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) throw Failure(withErrno("cannot open " + path.string(), errno));
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) throw Failure(withErrno("cannot read " + path.string(), errno));
  return bytes;
}

void replaceFile(const std::filesystem::path& path, std::string_view bytes, unsigned mode) {
  const std::string temporary = path.string() + ".new";
  ::unlink(temporary.c_str());
  const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (descriptor < 0) throw Failure(withErrno("cannot write " + temporary, errno));
  const bool written = writeAll(descriptor, bytes) && ::fchmod(descriptor, mode) == 0;
  const int error = errno;
  ::close(descriptor);
  if (!written || ::rename(temporary.c_str(), path.c_str()) != 0) {
    const int reason = written ? errno : error;
    ::unlink(temporary.c_str());
    throw Failure(withErrno("cannot write " + path.string(), reason));
  }
}

FolderLock::FolderLock(const std::filesystem::path& path)
    : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
  if (descriptor_ < 0) throw Failure(withErrno("cannot open " + path.string(), errno));
  if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) return;
  const int error = errno;
  ::close(descriptor_);
  if (error == EWOULDBLOCK) {
    throw Failure("another local cloud runs in " + path.parent_path().string());
  }
  throw Failure(withErrno("cannot lock " + path.string(), error));
}

FolderLock::~FolderLock() {
  ::close(descriptor_);
}

}  // namespace vorlane::devcloud
