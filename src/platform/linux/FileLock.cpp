#include "platform/linux/FileLock.h"

#include "platform/linux/Files.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace vorlane {

FileLock FileLock::take(int folder, const std::string& name, std::chrono::milliseconds patience, int& error) {
  FileLock lock;
  lock.fd_ = files::open(folder, name, O_RDWR | O_CREAT);
  if (!lock.fd_) {
    error = errno;
    return lock;
  }
  // Holders write one small file, so a wait is rare and short. There is no call
  // that waits for a bounded time; a stopped holder must not hang us.
  const auto giveUp = std::chrono::steady_clock::now() + patience;
  while (::flock(lock.fd_.get(), LOCK_EX | LOCK_NB) != 0) {
    error = errno;
    if (error == EINTR) continue;
    if (error != EWOULDBLOCK || std::chrono::steady_clock::now() >= giveUp) {
      lock.fd_.reset();
      return lock;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  error = 0;
  return lock;
}

}  // namespace vorlane
