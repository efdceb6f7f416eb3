#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// What extractLine cuts off.
struct CutLine {
  std::optional<std::string> line;
  /// How many bytes the caller has to remove from the front of its buffer.
  std::size_t consumed = 0;
};

/// Cuts the first line that is not blank off a stream, without its 0x0A and one
/// 0x0D before that. No line and nothing consumed while none is complete.
CutLine extractLine(std::string_view buffer);

/// Collects a stream of newline-delimited messages and yields its lines, exactly as
/// extractLine would cut them off the whole buffer. A long line that
/// comes in many pieces is searched once, not anew with each piece. Not thread-safe.
class LineBuffer {
 public:
  void append(std::string_view bytes);
  /// The next line that is complete and not blank.
  std::optional<std::string> next();
  /// Bytes that no line has taken yet.
  std::size_t size() const { return bytes_.size() - start_; }

 private:
  std::string bytes_;
  /// What lies before this has been yielded.
  std::size_t start_ = 0;
  /// There is no newline between `start_` and here.
  std::size_t searched_ = 0;
};

}  // namespace vorlane
