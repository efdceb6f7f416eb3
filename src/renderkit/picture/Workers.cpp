#include "renderkit/picture/Workers.h"

#include <immintrin.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace renderkit::picture {
namespace {

/// Flushes subnormal numbers to zero while it lives, and leaves the thread as it was.
class FlushToZero {
 public:
  FlushToZero() : before_(_mm_getcsr()) { _mm_setcsr(before_ | flushToZero | denormalsAreZero); }
  ~FlushToZero() { _mm_setcsr(before_); }

 private:
  static constexpr unsigned flushToZero = 0x8000, denormalsAreZero = 0x0040;
  unsigned before_;
};

}  // namespace

Workers::Workers(int threads) {
  const auto count =
      threads > 0 ? static_cast<unsigned>(threads) : std::max(1u, std::thread::hardware_concurrency());
  for (std::size_t worker = 1; worker < count; ++worker) {
    try {
      threads_.emplace_back([this, worker] { loop(worker); });
    } catch (const std::system_error&) {
      break;  // Fewer do as well.
    }
  }
}

Workers::~Workers() {
  {
    const std::scoped_lock lock(mutex_);
    ending_ = true;
  }
  started_.notify_all();
  for (auto& thread : threads_) thread.join();
}

void Workers::run(std::size_t pieces, const std::function<void(std::size_t, std::size_t)>& work) {
  {
    const std::scoped_lock lock(mutex_);
    work_ = &work;
    pieces_ = pieces;
    next_ = 0;
    failure_ = nullptr;
    busy_ = threads_.size();
    ++epoch_;
  }
  started_.notify_all();
  take(0);
  std::unique_lock lock(mutex_);
  finished_.wait(lock, [this] { return busy_ == 0; });
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void Workers::loop(std::size_t worker) {
  std::size_t seen = 0;
  for (;;) {
    {
      std::unique_lock lock(mutex_);
      started_.wait(lock, [&] { return ending_ || epoch_ != seen; });
      if (ending_) return;
      seen = epoch_;
    }
    take(worker);
    const std::scoped_lock lock(mutex_);
    if (--busy_ == 0) finished_.notify_one();
  }
}

void Workers::take(std::size_t worker) {
  const FlushToZero flush;
  try {
    for (std::size_t piece = next_++; piece < pieces_; piece = next_++) (*work_)(piece, worker);
  } catch (...) {
    const std::scoped_lock lock(mutex_);
    if (!failure_) failure_ = std::current_exception();
    next_ = pieces_;
  }
}

}  // namespace renderkit::picture
