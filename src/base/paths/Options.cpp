#include "base/paths/Options.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace vorlane {
namespace {

bool isOption(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

[[noreturn]] void refuse(const std::string& option, const char* why) {
  throw UsageFailure("the option " + option + why);
}

}  // namespace

/// Walks over the words and hands each option to its taker.
struct Options::Reader {
  const Options& options;
  const Words& words;
  std::size_t next = 0;
  std::vector<const Option*> seen;

  /// The word at `next` is an option.
  void takeOption() {
    const auto& word = words[next++];
    const auto* const option = options.find(word);
    if (option == nullptr) throw UsageFailure("unknown option " + word);
    if (std::ranges::find(seen, option) != seen.end()) refuse(option->name, " is given twice");
    seen.push_back(option);
    option->take(option->takesValue ? valueOf(*option, word) : std::string());
  }

  std::string valueOf(const Option& option, const std::string& word) {
    std::string value;
    if (word.size() > option.name.size()) {
      value = word.substr(option.name.size() + 1);
    } else if (next < words.size() && !words[next].starts_with("--")) {
      value = words[next++];
    }
    if (value.empty()) refuse(option.name, " needs a value");
    return value;
  }
};

Options& Options::flag(std::string name, bool& given) {
  options_.push_back({std::move(name), false, [&given](const std::string&) { given = true; }});
  return *this;
}

Options& Options::value(std::string name, std::optional<std::string>& taken) {
  return value(std::move(name), [&taken](const std::string& text) { taken = text; });
}

Options& Options::value(std::string name, std::function<void(const std::string&)> take) {
  options_.push_back({std::move(name), true, std::move(take)});
  return *this;
}

const Options::Option* Options::find(std::string_view word) const {
  const auto named = std::ranges::find_if(options_, [word](const Option& option) {
    if (!word.starts_with(option.name)) return false;
    const auto rest = word.substr(option.name.size());
    return rest.empty() || (option.takesValue && rest.front() == '=');
  });
  return named == options_.end() ? nullptr : &*named;
}

Options::Words Options::parse(const Words& words) const {
  Reader reader{*this, words, 0, {}};
  Words operands;
  while (reader.next < words.size()) {
    const auto& word = words[reader.next];
    if (word == "--") {
      operands.insert(operands.end(), words.begin() + static_cast<std::ptrdiff_t>(reader.next) + 1,
                      words.end());
      break;
    }
    if (isOption(word)) {
      reader.takeOption();
    } else {
      operands.push_back(words[reader.next++]);
    }
  }
  return operands;
}

Options::Words Options::parseLeading(const Words& words) const {
  Reader reader{*this, words, 0, {}};
  while (reader.next < words.size() && isOption(words[reader.next])) reader.takeOption();
  return {words.begin() + static_cast<std::ptrdiff_t>(reader.next), words.end()};
}

Options::Words wordsOf(int count, char** words) {
  return {words + std::min(count, 1), words + count};
}

}  // namespace vorlane
