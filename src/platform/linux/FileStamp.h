#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace vorlane {

/// Shows whether a file has changed without reading it. The time of the
/// last status change is part of it, so that a change of rights counts too.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since 1970
  std::int64_t changed = 0;   ///< nanoseconds since 1970

  explicit FileStamp(const struct stat& status);
  /// The bytes of the five numbers, for who keeps a stamp without knowing what it is.
  std::string text() const;

  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

}  // namespace vorlane
