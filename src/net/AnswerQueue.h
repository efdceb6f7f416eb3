#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace vorlane {

/// The answers of one connection that the client has not taken yet, in whole lines.
/// Small ones are gathered so that they go out together; a large one is never
/// copied. Not thread-safe.
class AnswerQueue {
 public:
  enum class Sending { complete, more, blocked, failed };

  void append(std::string line);
  /// Moves everything from the other queue behind what is here.
  void take(AnswerQueue& other);
  /// Hands the kernel what it takes of them, and about `limit` bytes at most: `more` is left then.
  Sending send(int socket, std::size_t limit);
  std::size_t bytes() const { return bytes_; }
  bool empty() const { return bytes_ == 0; }

 private:
  void remove(std::size_t count);

  std::deque<std::string> chunks_;
  /// Of the first chunk.
  std::size_t sent_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace vorlane
