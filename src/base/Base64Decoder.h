#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace vorlane {

/// Decodes strict, padded, standard base64 that arrives in parts, so that a large text
/// need not be held, nor what it stands for.
class Base64Decoder {
 public:
  /// The most bytes that decode writes for a part of so many characters.
  static constexpr std::size_t maximumBytes(std::size_t characters) { return (characters + 3) / 4 * 3; }

  /// Decodes a part into `out` and returns how many bytes it wrote there; nothing once the
  /// text cannot be base64 any more.
  std::optional<std::size_t> decode(std::string_view part, char* out);
  /// Whether the parts so far are a whole text.
  bool complete() const { return held_ == 0 && !failed_; }

 private:
  /// Decodes the four characters at the front, which may be the padded last ones.
  bool decodeGroup(std::string_view group, char*& out);

  /// Characters of a group that the next part completes.
  std::array<char, 4> group_{};
  std::size_t held_ = 0;
  bool padded_ = false;
  bool failed_ = false;
};

}  // namespace vorlane
