#pragma once

#include <atomic>
#include <stop_token>
#include <thread>

namespace vorlane::bake {

/// Turns SIGINT and SIGTERM into a stop request. To be made before any other thread, which
/// inherit that the signals are held back. A second signal ends the process at once.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  std::stop_token token() const { return source_.get_token(); }
  bool happened() const { return source_.stop_requested(); }

 private:
  std::stop_source source_;
  std::atomic<bool> over_ = false;
  std::thread thread_;
};

}  // namespace vorlane::bake
