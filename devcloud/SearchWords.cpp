#include "devcloud/SearchWords.h"

#include "base/Text.h"

#include <algorithm>
#include <sstream>

namespace vorlane::devcloud {

SearchWords::SearchWords(std::string_view query) {
  std::istringstream words(lowercased(query));
  for (std::string word; words >> word;) words_.push_back(word);
}

std::size_t SearchWords::countIn(std::string_view text) const {
  const std::string lower = lowercased(text);
  const auto count = std::ranges::count_if(words_, [&](const auto& word) { return lower.contains(word); });
  return static_cast<std::size_t>(count);
}

std::string SearchWords::bestLine(std::string_view text) const {
  std::size_t most = 0;
  std::string best;
  for (const std::string_view line : linesOf(text)) {
    const std::size_t count = countIn(line);
    if (count <= most) continue;
    most = count;
    best = trimmed(line);
  }
  return best;
}

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    lines.push_back(line);
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return lines;
}

std::string shortened(std::string_view text, std::size_t most) {
  if (text.size() <= most) return std::string(text);
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0) == 0x80) --most;
  return std::string(text.substr(0, most)) + "\u2026";
}

}  // namespace vorlane::devcloud
