#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

namespace vorlane {

/// What the bodies of all answers of a session take together: of those that arrive, and of those
/// that are still held by whoever asked. Callable from any thread.
class AnswerMemory : public std::enable_shared_from_this<AnswerMemory> {
 public:
  /// One body's part of it, given back when it goes. Used by one thread at a time.
  class Share;

  /// `limit`: for all bodies, in bytes.
  explicit AnswerMemory(std::size_t limit) : limit_(limit) {}

  std::unique_ptr<Share> share();

  /// Calls `emptied` when all is given back after it had been much, on the thread that gives back
  /// the last of it; null for nobody. When this returns the earlier one is not called any more.
  void onEmptied(std::function<void()> emptied);

 private:
  bool take(std::size_t bytes, bool always);
  void giveBack(std::size_t bytes);

  const std::size_t limit_;
  std::mutex lock_;  // guards what follows, and is held while `emptied_` is called
  std::size_t taken_ = 0, peak_ = 0;
  std::function<void()> emptied_;
};

class AnswerMemory::Share {
 public:
  explicit Share(std::shared_ptr<AnswerMemory> memory) : memory_(std::move(memory)) {}
  ~Share() { memory_->giveBack(bytes_); }
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;

  std::size_t bytes() const { return bytes_; }
  /// Makes it as large as that. False, and as it was, when all would be more than the limit. A
  /// small one is never refused: rights have to be told while large answers are being read.
  bool growTo(std::size_t bytes);

 private:
  const std::shared_ptr<AnswerMemory> memory_;
  std::size_t bytes_ = 0;
};

}  // namespace vorlane
