#pragma once

#include <sys/types.h>

#include <string_view>

namespace vorlane {

/// Writes to an inherited descriptor without ever waiting, and without setting
/// O_NONBLOCK on it: other processes share that flag, and would trip over it.
class StandardOutput {
 public:
  /// `descriptor` stays the caller's.
  explicit StandardOutput(int descriptor);
  ~StandardOutput();
  StandardOutput(const StandardOutput&) = delete;
  StandardOutput& operator=(const StandardOutput&) = delete;

  /// As write(2) does, with errno, and EAGAIN instead of waiting.
  ssize_t write(std::string_view bytes) const;
  /// What to wait for with poll(2), for room and for the loss of the reader.
  int descriptor() const { return descriptor_; }

 private:
  enum class Kind {
    file,    ///< writing to it never waits for another process
    socket,  ///< each call says that it will not wait
    /// A pipe or terminal, opened a second time and non-blocking through `own_` alone.
    reopened,
    /// One that cannot be opened again: small writes, after asking.
    shared,
  };

  int descriptor_;
  int own_ = -1;
  Kind kind_;
};

/// Says one line on standard error, in the program's name, or drops it when
/// nobody takes it at once: clients often leave that pipe unread.
void notice(std::string_view text);

}  // namespace vorlane
