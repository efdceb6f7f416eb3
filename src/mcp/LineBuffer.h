#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Collects a stream of newline-delimited messages and yields its lines, exactly as
/// JSONRPCCodec::extractLine would cut them off the whole buffer. A long line that
/// comes in many pieces is searched once, not anew with each piece. Not thread-safe.
class LineBuffer {
 public:
  void append(std::string_view bytes);
  /// The next line that is complete and not blank.
  std::optional<std::string> next();

 private:
  std::string bytes_;
  /// What lies before this has been yielded.
  std::size_t start_ = 0;
  /// There is no newline between `start_` and here.
  std::size_t searched_ = 0;
};

}  // namespace vorlane
