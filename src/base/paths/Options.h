#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// The command line, or a variable that stands for an option, is wrong; what() names the
/// word. A program then ends with exit 2 and this as its one line.
class UsageFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The options of a program or of one of its commands, each named with its dashes. An
/// option's value stands behind its "=" or is the next word; only behind "=" may it begin with
/// "--", since the next word is otherwise an option and the value was forgotten.
class Options {
 public:
  using Words = std::vector<std::string>;

  /// An option without a value; `given` becomes true.
  Options& flag(std::string name, bool& given);
  /// An option with a value, which is not empty. What `taken` refers to outlives the parse.
  Options& value(std::string name, std::optional<std::string>& taken);
  /// The same, for a value that has to be checked: `take` throws UsageFailure.
  Options& value(std::string name, std::function<void(const std::string&)> take);

  /// Reads all words; options may stand anywhere before a "--". Returns the words that are
  /// no options. Throws UsageFailure for an unknown option, one that lacks its value and
  /// one that is given twice.
  Words parse(const Words& words) const;
  /// Reads the options in front and returns the words from the first one that is none.
  Words parseLeading(const Words& words) const;

 private:
  struct Option {
    std::string name;
    bool takesValue;
    std::function<void(const std::string&)> take;
  };
  struct Reader;

  const Option* find(std::string_view word) const;

  std::vector<Option> options_;
};

/// The words behind the program's own, as main is given them.
Options::Words wordsOf(int count, char** words);

}  // namespace vorlane
