#include "platform/linux/FileStamp.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

std::int64_t nanoseconds(const struct timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

FileStamp::FileStamp(const struct stat& status)
    : device(status.st_dev),
      inode(status.st_ino),
      size(status.st_size),
      modified(nanoseconds(status.st_mtim)),
      changed(nanoseconds(status.st_ctim)) {}

std::string FileStamp::text() const {
  return fmt::format("{:x}.{:x}.{:x}.{:x}.{:x}", device, inode, size, modified, changed);
}

}  // namespace vorlane
