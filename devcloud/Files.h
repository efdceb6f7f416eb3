#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

/// The whole file, or nothing when there is none. Throws Failure naming the path.
std::optional<std::string> readFile(const std::filesystem::path& path);

/// False, with errno, when not all of it could be written.
bool writeAll(int descriptor, std::string_view bytes);

/// Replaces the file by rename, so that a reader sees the old bytes or the new
/// ones. Throws Failure naming the path; the old file is then as it was.
void replaceFile(const std::filesystem::path& path, std::string_view bytes, unsigned mode);

/// Holds a lock file for its own lifetime, so that two servers never share a folder.
class FolderLock {
 public:
  /// Throws Failure when another process holds it.
  explicit FolderLock(const std::filesystem::path& path);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int descriptor_;
};

}  // namespace vorlane::devcloud
