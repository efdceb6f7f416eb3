#pragma once

#include "base/FileDescriptor.h"

#include <chrono>
#include <string>

namespace vorlane {

/// Keeps other processes, and other threads of this one, from writing beside us.
/// Held until destroyed; the kernel releases it when the process dies.
class FileLock {
 public:
  /// Takes the lock file `name` in the open `folder`, making it when missing.
  /// Waits for another holder up to `patience`. `error` is 0 when it is held,
  /// EWOULDBLOCK when it did not come free, else the errno of the failure.
  static FileLock take(int folder, const std::string& name, std::chrono::milliseconds patience, int& error);

 private:
  FileDescriptor fd_;
};

}  // namespace vorlane
