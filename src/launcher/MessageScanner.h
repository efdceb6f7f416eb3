#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// What one line is, as far as the launcher has to know.
struct Message {
  enum class Kind {
    blank,
    request,       ///< a method and an id: one answer is due
    notification,  ///< a method, and no id
    other,         ///< an object without a method, as a client's response is
    malformed,     ///< no JSON object, or an id that is no JSON
  };
  Kind kind = Kind::blank;
  /// Of a request: its id as it is written, and what stands for it (see messageIDKey).
  std::string id;
  std::string key;
};

/// Finds the "id" and "method" at the top of a JSON line while the line passes
/// by in pieces, so that nobody has to hold a line of 50 MB. Of a repeated name
/// the last counts, as it does for the agent. What lies deeper is only skipped:
/// whether it is JSON is for the agent to say.
class MessageScanner {
 public:
  /// Takes the next piece of the line, which must hold no newline.
  void feed(std::string_view bytes);
  /// Some of a line has passed, and not its end.
  bool midLine() const { return begun_; }
  /// What the line was; the next piece begins a new one.
  Message finish();

  /// The id as it is written, once it has passed; of an array or object "null".
  const std::optional<std::string>& id() const { return id_; }

 private:
  enum class State : unsigned char {
    start,
    firstName,
    name,
    nameText,
    colon,
    value,
    scalar,
    text,
    nested,
    nestedText,
    comma,
    end,
    broken,
  };
  enum class Role : unsigned char { none, id, method };

  void take(char byte);
  void takeName(char byte);
  void beginValue(char byte);
  void takeInValue(char byte);
  void takeAfterValue(char byte);
  void endValue();
  void keep(std::string_view bytes);
  Role roleOfName() const;

  State state_ = State::start;
  Role role_ = Role::none;
  /// The byte before was a backslash inside a string.
  bool escaped_ = false;
  bool begun_ = false;
  bool blank_ = true;
  bool hasMethod_ = false;
  bool returned_ = false;
  std::size_t depth_ = 0;
  std::string name_;
  std::string value_;
  std::optional<std::string> id_;
};

/// The key (see messageIDKey) of the request that a line from the agent answers,
/// that of null when it names none. Reads no further than the first id, which
/// the agent writes before its results.
std::string answeredKey(std::string_view line);

}  // namespace vorlane
