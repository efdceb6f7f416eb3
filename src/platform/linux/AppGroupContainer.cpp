#include "platform/linux/AppGroupContainer.h"

#include "base/Failure.h"
#include "base/FileDescriptor.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

namespace vorlane {
namespace {

std::string userName(uid_t user) {
  std::array<char, 4096> buffer;
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr ? entry.pw_name : fmt::format("{}", user);
}

void requireOwn(const char* what, const std::string& path, uid_t owner) {
  if (owner == ::geteuid()) return;
  throw Failure(fmt::format("The {} {} belongs to the user {}.", what, path, userName(owner)));
}

}  // namespace

void prepareAppGroupContainer(const std::string& folder) {
  if (const int error = files::makeFolders(folder); error != 0) {
    throw Failure(withErrno(fmt::format("The container {} cannot be made", folder), error));
  }
  // The owner of a link decides where the secrets go. Root may own one.
  struct stat status{};
  if (::lstat(folder.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && status.st_uid != 0) {
    requireOwn("link to the container", folder, status.st_uid);
  }
  // What is looked at and what is changed is the same folder, also when the name changes meanwhile.
  const FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const int error = errno;
  if (fd ? ::fstat(fd.get(), &status) != 0 : ::stat(folder.c_str(), &status) != 0) {
    throw Failure(withErrno(fmt::format("The container {} cannot be looked at", folder), errno));
  }
  requireOwn("container", folder, status.st_uid);
  if (!fd) throw Failure(withErrno(fmt::format("The container {} cannot be opened", folder), error));
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0 && ::fchmod(fd.get(), S_IRWXU) != 0) {
    throw Failure(withErrno(fmt::format("The container {} cannot be made private", folder), errno));
  }
}

}  // namespace vorlane
