#pragma once

#include "base/ShellLog.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vorlane::testing {

/// Keeps the lines that a component logs. Callable from any thread.
class LogRecorder {
 public:
  Log log() {
    return [this](std::string_view line) {
      const std::scoped_lock hold(lock_);
      lines_.emplace_back(line);
    };
  }
  std::vector<std::string> lines() const {
    const std::scoped_lock hold(lock_);
    return lines_;
  }
  /// The lines so far, which are then forgotten.
  std::vector<std::string> take() {
    const std::scoped_lock hold(lock_);
    return std::exchange(lines_, {});
  }

 private:
  mutable std::mutex lock_;
  std::vector<std::string> lines_;
};

}  // namespace vorlane::testing
