#include "base/tasks/Moment.h"

#include <atomic>

namespace vorlane {

thread_local constinit std::uint64_t Moment::current_ = 0;

Moment::Moment() {
  // A block for each thread, so that they do not meet at every moment.
  constexpr std::uint64_t block = 1 << 20;
  static std::atomic<std::uint64_t> blocks = 0;
  thread_local std::uint64_t next = 0;
  if (next % block == 0) next = ++blocks * block;
  current_ = ++next;
}

}  // namespace vorlane
