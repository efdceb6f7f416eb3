#pragma once

#include <cstdint>

namespace vorlane {

/// A stretch of work on one thread in which nothing is waited for and nothing is done that
/// others could see. Whether a file is asked about once in it or several times, nobody can
/// tell the difference: each answer might have been given just before the other. So what
/// compares the stamp of a file again and again may ask for it once in a moment.
class Moment {
 public:
  /// Begins one on this thread, in place of the one around it.
  Moment();
  /// Ends it; the one around it is over too.
  ~Moment() { end(); }
  Moment(const Moment&) = delete;
  Moment& operator=(const Moment&) = delete;

  /// Tells this thread's moment from all others; 0 outside.
  static std::uint64_t current() { return current_; }
  /// From here on everything is asked anew: before work that may wait, or take effect.
  static void end() { current_ = 0; }

 private:
  static thread_local constinit std::uint64_t current_;
};

}  // namespace vorlane
