#include "mcp/LineBuffer.h"

#include "mcp/JSONRPCCodec.h"

namespace vorlane {

void LineBuffer::append(std::string_view bytes) {
  if (start_ > 0) {
    bytes_.erase(0, start_);
    searched_ -= start_;
    start_ = 0;
  }
  // After a line of many megabytes its room is given back.
  if (bytes_.empty() && bytes_.capacity() > (std::size_t{1} << 20)) bytes_.shrink_to_fit();
  bytes_.append(bytes);
}

std::optional<std::string> LineBuffer::next() {
  if (bytes_.find('\n', searched_) != std::string::npos) {
    auto cut = JSONRPCCodec::extractLine(std::string_view(bytes_).substr(start_));
    if (cut.line) {
      start_ += cut.consumed;
      searched_ = start_;
      return std::move(cut.line);
    }
    // Blank lines alone. They are not kept, or a client could pile them up.
    start_ = bytes_.rfind('\n') + 1;
  }
  searched_ = bytes_.size();
  return std::nullopt;
}

}  // namespace vorlane
