#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Takes one line for the log. Components that log are handed one of these, so
/// that tests can read what they said.
using Log = std::function<void(std::string_view)>;

/// The log that everything in the suite shares. One message is one line, written
/// with a single write(2) at the end of the file, so that the lines of several
/// processes never interleave. Nothing here throws and nothing is kept open: the
/// file may be moved or removed at any time. Callable from any thread.
///
/// A file that would grow beyond `limit` moves to the same name with ".1" first,
/// in place of an earlier one, whichever process writes.
///
/// The log lies where every user can make files, so only the person's own plain file
/// is written to: no symbolic link, no file with a second name, nobody else's file.
/// When there is something else, or the file cannot be moved, this object says so once
/// on standard error and writes to `fallback` from then on, by the same rules.
class ShellLog {
 public:
  static constexpr std::uint64_t defaultLimit = 32 * 1024 * 1024;

  ShellLog(std::string path, std::string processName, std::optional<std::string> fallback = std::nullopt,
           std::uint64_t limit = defaultLimit);

  /// Appends "SECONDS [PROCESS] MESSAGE". Line breaks within the message become blanks.
  void write(std::string_view message) const;

  /// The file that takes the next line, looked at now; empty when there is none.
  std::string path() const;

 private:
  void moveToFallback(const std::string& reason) const;

  std::string path_;
  std::string processName_;
  std::optional<std::string> fallback_;
  std::uint64_t limit_;
  // Behind a pointer, so that a log can be moved to its owner.
  std::unique_ptr<std::atomic<bool>> usesFallback_ = std::make_unique<std::atomic<bool>>(false);
};

/// The process's own log, for the paths that no constructor reaches (a failure
/// of a spawned task). Silent until the program has installed one at its start.
void installShellLog(ShellLog log);
void shellLog(std::string_view message);
/// The file that the process's log is written to; empty when there is none.
std::string shellLogPath();

}  // namespace vorlane
