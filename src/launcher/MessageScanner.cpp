#include "launcher/MessageScanner.h"

#include "launcher/MessageID.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vorlane {
namespace {

enum Class : unsigned char {
  quote = 1,
  backslash = 2,
  open = 4,
  close = 8,
  comma = 16,
  colon = 32,
  space = 64
};

constexpr auto classOf = [] {
  std::array<unsigned char, 256> table{};
  table['"'] = quote;
  table['\\'] = backslash;
  table['{'] = table['['] = open;
  table['}'] = table[']'] = close;
  table[','] = comma;
  table[':'] = colon;
  table[' '] = table['\t'] = table['\r'] = space;
  return table;
}();

constexpr unsigned char classAt(char byte) {
  return classOf[static_cast<unsigned char>(byte)];
}

/// As long as "method" can get, when every letter of it is escaped.
constexpr std::size_t longestName = 36;

}  // namespace

void MessageScanner::feed(std::string_view bytes) {
  if (!bytes.empty()) begun_ = true;
  // As the agent has it: one carriage return before the newline is no content.
  if (blank_ && !bytes.empty()) blank_ = bytes == "\r" && !std::exchange(returned_, true);
  while (!bytes.empty() && state_ != State::broken) {
    // The bytes at which something happens, of those states that pass over most.
    unsigned char stops = 0xFF;
    switch (state_) {
      case State::nameText:
      case State::text:
      case State::nestedText:
        stops = quote | backslash;
        break;
      case State::nested:
        stops = quote | open | close;
        break;
      default:
        break;
    }
    std::size_t run = 0;
    if (escaped_) {
      run = 1;
      escaped_ = false;
    } else if (stops != 0xFF) {
      while (run < bytes.size() && (classAt(bytes[run]) & stops) == 0) ++run;
    }
    keep(bytes.substr(0, run));
    bytes.remove_prefix(run);
    if (run == 0) {
      take(bytes.front());
      bytes.remove_prefix(1);
    }
  }
}

void MessageScanner::take(char byte) {
  switch (state_) {
    case State::start:
    case State::firstName:
    case State::name:
    case State::nameText:
    case State::colon:
      return takeName(byte);
    case State::value:
      if (classAt(byte) != space) beginValue(byte);
      return;
    case State::scalar:
    case State::text:
    case State::nested:
    case State::nestedText:
      return takeInValue(byte);
    case State::comma:
      return takeAfterValue(byte);
    case State::end:
      if (classAt(byte) != space) state_ = State::broken;
      return;
    case State::broken:
      return;
  }
}

void MessageScanner::takeName(char byte) {
  const auto kind = classAt(byte);
  if (state_ == State::nameText) {
    if (kind == backslash) {
      escaped_ = true;
      keep("\\");
    } else {
      role_ = roleOfName();
      state_ = State::colon;
    }
    return;
  }
  if (kind == space) return;
  if (state_ == State::start) {
    state_ = byte == '{' ? State::firstName : State::broken;
  } else if (state_ == State::colon) {
    state_ = kind == colon ? State::value : State::broken;
  } else if (kind == quote) {
    name_.clear();
    state_ = State::nameText;
  } else {
    state_ = state_ == State::firstName && byte == '}' ? State::end : State::broken;
  }
}

void MessageScanner::beginValue(char byte) {
  value_.clear();
  if (role_ == Role::method) hasMethod_ = classAt(byte) == quote;
  switch (classAt(byte)) {
    case quote:
      state_ = State::text;
      break;
    case open:
      state_ = State::nested;
      depth_ = 1;
      // The agent answers such an id as null.
      if (role_ == Role::id) id_ = "null";
      role_ = Role::none;
      return;
    case 0:
      state_ = State::scalar;
      break;
    default:
      state_ = State::broken;
      return;
  }
  keep({&byte, 1});
}

void MessageScanner::takeInValue(char byte) {
  const auto kind = classAt(byte);
  if (state_ == State::scalar) {
    if (kind == 0) return keep({&byte, 1});
    endValue();
    return takeAfterValue(byte);
  }
  if (state_ == State::nested) {
    if (kind == quote) {
      state_ = State::nestedText;
    } else if (kind == open) {
      ++depth_;
    } else if (--depth_ == 0) {
      state_ = State::comma;
    }
    return;
  }
  keep({&byte, 1});
  if (kind == backslash) {
    escaped_ = true;
  } else if (state_ == State::nestedText) {
    state_ = State::nested;
  } else {
    endValue();
  }
}

void MessageScanner::takeAfterValue(char byte) {
  const auto kind = classAt(byte);
  if (kind == space) return;
  if (kind == comma) {
    state_ = State::name;
  } else {
    state_ = byte == '}' ? State::end : State::broken;
  }
}

void MessageScanner::endValue() {
  if (role_ == Role::id) id_ = std::move(value_);
  role_ = Role::none;
  state_ = State::comma;
}

void MessageScanner::keep(std::string_view bytes) {
  if (state_ == State::nameText) {
    // One byte more than a name can have shows that it is another.
    name_ += bytes.substr(0, std::min(bytes.size(), longestName + 1 - name_.size()));
  } else if (role_ == Role::id) {
    value_ += bytes;
  }
}

MessageScanner::Role MessageScanner::roleOfName() const {
  const auto name = name_.contains('\\') ? decodedJSONText(name_).value_or("") : name_;
  if (name == "id") return Role::id;
  return name == "method" ? Role::method : Role::none;
}

Message MessageScanner::finish() {
  MessageScanner line;
  std::swap(line, *this);
  if (line.blank_) return {};
  if (line.state_ != State::end) return {.kind = Message::Kind::malformed};
  auto key = line.id_ ? messageIDKey(*line.id_) : std::nullopt;
  if (line.id_ && !key) return {.kind = Message::Kind::malformed};
  if (!line.hasMethod_) return {.kind = Message::Kind::other};
  if (!line.id_) return {.kind = Message::Kind::notification};
  return {.kind = Message::Kind::request, .id = std::move(*line.id_), .key = std::move(*key)};
}

std::string answeredKey(std::string_view line) {
  constexpr std::size_t piece = 256;
  MessageScanner scanner;
  while (!line.empty() && !scanner.id()) {
    scanner.feed(line.substr(0, piece));
    line.remove_prefix(std::min(piece, line.size()));
  }
  constexpr char none[] = "null";
  return messageIDKey(scanner.id().value_or(none)).value_or(none);
}

}  // namespace vorlane
