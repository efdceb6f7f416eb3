#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane::devcloud {

/// The words of a query, compared without regard to case.
class SearchWords {
 public:
  explicit SearchWords(std::string_view query);

  std::size_t size() const { return words_.size(); }
  /// How many of the words occur in `text`, as wholes or within others.
  std::size_t countIn(std::string_view text) const;
  bool allIn(std::string_view text) const { return countIn(text) == words_.size(); }
  /// The line of `text` with the most of the words; empty when none has any.
  std::string bestLine(std::string_view text) const;

 private:
  std::vector<std::string> words_;
};

/// The lines of a text without their ends.
std::vector<std::string_view> linesOf(std::string_view text);

/// The text, cut between two characters and marked when it is longer than `most` bytes.
std::string shortened(std::string_view text, std::size_t most);

}  // namespace vorlane::devcloud
