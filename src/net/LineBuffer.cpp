#include "net/LineBuffer.h"

namespace vorlane {

CutLine extractLine(std::string_view buffer) {
  std::size_t start = 0;
  while (start < buffer.size()) {
    const auto newline = buffer.find('\n', start);
    if (newline == std::string_view::npos) break;
    auto candidate = buffer.substr(start, newline - start);
    if (candidate.ends_with('\r')) candidate.remove_suffix(1);
    start = newline + 1;
    if (!candidate.empty()) return {std::string(candidate), start};
  }
  return {};
}

void LineBuffer::append(std::string_view bytes) {
  if (start_ > 0) {
    bytes_.erase(0, start_);
    searched_ -= start_;
    start_ = 0;
  }
  bytes_.append(bytes);
}

std::optional<std::string> LineBuffer::next() {
  if (bytes_.find('\n', searched_) != std::string::npos) {
    auto cut = extractLine(std::string_view(bytes_).substr(start_));
    if (cut.line) {
      start_ += cut.consumed;
      searched_ = start_;
      return std::move(cut.line);
    }
    // Blank lines alone. They are not kept, or a client could pile them up.
    start_ = bytes_.rfind('\n') + 1;
  }
  searched_ = bytes_.size();
  // After a line of many megabytes its room is given back at once: the client may be quiet for days.
  // Assigning an empty string would keep the room.
  if (start_ == bytes_.size() && bytes_.capacity() > (std::size_t{1} << 20)) {
    std::string().swap(bytes_);
    start_ = searched_ = 0;
  }
  return std::nullopt;
}

}  // namespace vorlane
