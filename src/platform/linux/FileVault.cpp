#include "platform/linux/FileVault.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/Text.h"
#include "base/tasks/Moment.h"
#include "platform/linux/FileStamp.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>

namespace vorlane {
namespace {

constexpr std::size_t secretLimit = std::size_t{1} << 20;
constexpr std::chrono::seconds lockPatience{2};
constexpr char lockName[] = ".lock";

/// The name of a file or folder for a service or account. An empty name has none.
std::string fileName(const std::string& name) {
  auto encoded = percentEncoded(name);
  if (encoded.starts_with('.')) encoded.replace(0, 1, "%2E");
  return encoded;
}

/// Logs why the vault did not serve; the secret and the account's name stay out.
vault::Status refused(const SecretItem& item, const char* doing, int error) {
  shellLog(withErrno(fmt::format("file vault: {} {} failed", doing, item.service), error));
  return vault::notAvailable;
}

}  // namespace

/// An item's folder, held open while its turn to write lasts.
struct FileVault::Writing {
  FileDescriptor service;
  FileLock turn;
  bool exists = false;
};

/// The folder of the item's service; none, and why, when it cannot be opened.
FileDescriptor FileVault::openService(const SecretItem& item, int& error) const {
  const auto root = files::open(AT_FDCWD, folder_, O_RDONLY | O_DIRECTORY);
  error = root ? EINVAL : errno;
  if (!root || item.service.empty() || item.account.empty()) return {};
  auto service = files::open(root.get(), fileName(item.service), O_RDONLY | O_DIRECTORY);
  error = service ? 0 : errno;
  return service;
}

SecretVault::Read FileVault::read(const SecretItem& item) {
  Read result;
  int error = 0;
  const auto service = openService(item, error);
  FileDescriptor file;
  if (service) {
    file = files::open(service.get(), fileName(item.account), O_RDONLY);
    error = file ? 0 : errno;
  }
  if (error == 0) error = files::readAll(file.get(), secretLimit, result.bytes);
  if (error == 0) {
    result.status = vault::success;
    return result;
  }
  result.bytes.clear();
  result.status = error == ENOENT ? vault::itemNotFound : refused(item, "reading", error);
  return result;
}

/// Takes the turn and looks for the item. Makes the folders when `make`.
vault::Status FileVault::beginWriting(const SecretItem& item, bool make, Writing& writing) const {
  if (make && !item.service.empty()) {
    if (const int error = files::makeFolders(folder_); error != 0) return refused(item, "making", error);
    const auto root = files::open(AT_FDCWD, folder_, O_RDONLY | O_DIRECTORY);
    if (!root) return refused(item, "making", errno);
    if (::mkdirat(root.get(), fileName(item.service).c_str(), 0700) != 0 && errno != EEXIST) {
      return refused(item, "making", errno);
    }
  }
  int error = 0;
  writing.service = openService(item, error);
  if (!writing.service) return error == ENOENT ? vault::itemNotFound : refused(item, "opening", error);
  writing.turn = FileLock::take(writing.service.get(), lockName, lockPatience, error);
  if (error != 0) return refused(item, "locking", error);
  struct stat status{};
  const auto name = fileName(item.account);
  const bool found = ::fstatat(writing.service.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  error = found ? 0 : errno;
  writing.exists = found;
  if (!found && error != ENOENT) return refused(item, "opening", error);
  return vault::success;
}

vault::Status FileVault::write(const SecretItem& item, const std::string& bytes, bool mustExist) const {
  // What could not be read back is not taken.
  if (bytes.size() > secretLimit) return refused(item, "writing", EFBIG);
  Writing writing;
  const auto status = beginWriting(item, !mustExist, writing);
  if (status != vault::success) return status;
  if (writing.exists != mustExist) return mustExist ? vault::itemNotFound : vault::duplicateItem;
  const auto name = fileName(item.account);
  const int error = files::replace(writing.service.get(), name, "." + name + ".new", bytes);
  return error == 0 ? vault::success : refused(item, "writing", error);
}

vault::Status FileVault::update(const SecretItem& item, const std::string& bytes) {
  return write(item, bytes, true);
}

vault::Status FileVault::add(const SecretItem& item, const std::string& bytes) {
  return write(item, bytes, false);
}

vault::Status FileVault::remove(const SecretItem& item) {
  Writing writing;
  const auto status = beginWriting(item, false, writing);
  if (status != vault::success) return status;
  if (::unlinkat(writing.service.get(), fileName(item.account).c_str(), 0) == 0) return vault::success;
  return errno == ENOENT ? vault::itemNotFound : refused(item, "removing", errno);
}

std::optional<std::string> FileVault::stamp(const SecretItem& item) {
  /// What this thread was asked for last, and told in that moment.
  struct Told {
    std::string folder;
    SecretItem item;
    std::string path;
    std::uint64_t moment = 0;
    std::optional<std::string> stamp;
  };
  static thread_local Told told;
  const auto moment = Moment::current();
  if (told.item.account != item.account || told.item.service != item.service || told.folder != folder_) {
    told = {folder_, item, folder_ + "/" + fileName(item.service) + "/" + fileName(item.account), 0, {}};
  } else if (moment != 0 && told.moment == moment) {
    return told.stamp;
  }
  struct stat status{};
  told.moment = moment;
  if (::lstat(told.path.c_str(), &status) == 0) {
    told.stamp = FileStamp(status).text();
  } else if (errno == ENOENT) {
    told.stamp = "absent";
  } else {
    told.stamp.reset();
  }
  return told.stamp;
}

}  // namespace vorlane
