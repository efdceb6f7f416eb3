#pragma once

#include "base/FileDescriptor.h"

#include <string>

namespace vorlane {

/// A private folder among the system's temporary ones, for what need not outlive the
/// agent. It is removed with the object; since the agent is mostly ended without any
/// farewell, making one also removes those that ended agents of this user left.
class TemporaryDirectory {
 public:
  /// Where no folder can be made, none is at path(), and opening anything in it says what is
  /// wrong. Throws std::filesystem::filesystem_error when there is no place for such folders.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  /// The folder, locked for as long as it is in use; none when it could not be made.
  FileDescriptor held_;
};

}  // namespace vorlane
