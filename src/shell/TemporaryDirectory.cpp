#include "shell/TemporaryDirectory.h"

#include "base/Identifiers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

constexpr char prefix[] = "vorlane-fallback-";

/// The folder, if it is this user's own and nobody holds it.
FileDescriptor lockFolder(const std::string& path) {
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status{};
  const bool ours = folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid();
  return ours && ::flock(folder.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(folder) : FileDescriptor();
}

void removeAbandoned(const fs::path& place) {
  std::error_code ignored;
  for (fs::directory_iterator entry(place, ignored), end; entry != end; entry.increment(ignored)) {
    if (!entry->path().filename().string().starts_with(prefix)) continue;
    std::error_code failure;
    if (const auto held = lockFolder(entry->path().string())) fs::remove_all(entry->path(), failure);
  }
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  const auto place = fs::temp_directory_path();
  removeAbandoned(place);
  // Another agent that starts may take a new folder for an abandoned one until it is locked.
  for (int attempt = 0; attempt < 3 && !held_; ++attempt) {
    path_ = (place / (prefix + newUppercaseUUID())).string();
    if (::mkdir(path_.c_str(), S_IRWXU) == 0) held_ = lockFolder(path_);
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  if (held_) fs::remove_all(path_, ignored);
}

}  // namespace vorlane
