#include "platform/LauncherPointer.h"

#include "base/Failure.h"
#include "platform/linux/Files.h"

#include <fcntl.h>
#include <unistd.h>

namespace vorlane {

void writeLauncherPointer(const std::string& path, const std::string& container) {
  const auto slash = path.rfind('/');
  const auto folder = path.substr(0, slash), name = path.substr(slash + 1);
  int error = files::makeFolders(folder);
  if (error == 0) {
    const auto opened = files::open(AT_FDCWD, folder, O_RDONLY | O_DIRECTORY);
    // Two agents of two containers may start at once.
    const auto temporary = "." + name + "." + std::to_string(::getpid());
    error = opened.get() < 0 ? errno : files::replace(opened.get(), name, temporary, container + "\n");
  }
  if (error != 0) throw Failure(withErrno("cannot write the launcher's pointer " + path, error));
}

}  // namespace vorlane
