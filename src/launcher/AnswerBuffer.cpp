#include "launcher/AnswerBuffer.h"

namespace vorlane {

void AnswerBuffer::printed(std::size_t count) {
  constexpr std::size_t keptRoom = 262144;
  written_ += count;
  // What is left moves to the front only when that is little against what was
  // printed, or is the one unfinished line.
  if (written_ < whole_ && written_ < bytes_.size() / 2) return;
  bytes_.erase(0, written_);
  whole_ -= written_;
  written_ = 0;
  // A large answer's memory goes back to the system.
  if (bytes_.capacity() > keptRoom && bytes_.size() < keptRoom / 2) bytes_.shrink_to_fit();
}

}  // namespace vorlane
