#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace renderkit::picture {

/// Threads that share out numbered pieces of work. The thread that asks takes its part.
/// Subnormal numbers count as zero in all of them, so that a picture does not depend on who made it.
class Workers {
 public:
  /// `threads` counts the one that asks; 0 stands for one a processor.
  explicit Workers(int threads);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  std::size_t count() const { return threads_.size() + 1; }

  /// Calls work(piece, worker) for each piece from 0, in any order; worker is below count().
  /// Returns when all are done. The first exception stops the rest and is thrown again here.
  void run(std::size_t pieces, const std::function<void(std::size_t piece, std::size_t worker)>& work);

 private:
  void loop(std::size_t worker);
  void take(std::size_t worker);

  std::mutex mutex_;
  std::condition_variable started_, finished_;
  const std::function<void(std::size_t, std::size_t)>* work_ = nullptr;
  std::size_t pieces_ = 0;
  std::size_t busy_ = 0;
  std::size_t epoch_ = 0;
  bool ending_ = false;
  std::exception_ptr failure_;
  std::atomic<std::size_t> next_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace renderkit::picture
