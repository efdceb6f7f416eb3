#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vorlane {

/// Takes one line for the log. Components that log are handed one of these, so
/// that tests can read what they said.
using Log = std::function<void(std::string_view)>;

/// The log that everything in the suite shares. One message is one line, written
/// with a single write(2) at the end of the file, so that the lines of several
/// processes never interleave. Nothing here throws and nothing is kept open: the
/// file may be moved or removed at any time. A symbolic link, or anything but a
/// plain file, is never written to. Callable from any thread.
class ShellLog {
 public:
  ShellLog(std::string path, std::string processName);

  /// Appends "SECONDS [PROCESS] MESSAGE". Line breaks within the message become blanks.
  void write(std::string_view message) const;

 private:
  std::string path_;
  std::string processName_;
};

/// The process's own log, for the paths that no constructor reaches (a failure
/// of a spawned task). Silent until the program has installed one at its start.
void installShellLog(ShellLog log);
void shellLog(std::string_view message);

}  // namespace vorlane
