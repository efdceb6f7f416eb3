#include "base/JSON.h"
#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

namespace vorlane {
namespace {

namespace json = boost::json;

/// For each byte: 0 as it stands; 'u' as \u00XX; 1 the start of a longer
/// UTF-8 sequence, to be checked; else the letter of its short escape.
constexpr auto escapes = [] {
  std::array<char, 256> table{};
  for (int c = 0; c < 0x20; ++c) table[static_cast<std::size_t>(c)] = 'u';
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  table['"'] = '"';
  table['\\'] = '\\';
  for (std::size_t c = 0x80; c < 256; ++c) table[c] = 1;
  return table;
}();

/// Gathers short pieces before they go to the text: a result that is quoted JSON
/// itself has an escape every few bytes, and an append for each would cost more than the rest.
class Block {
 public:
  explicit Block(std::string& out) : out_(out) {}

  void put(char c) {
    if (used_ == bytes_.size()) flush();
    bytes_[used_++] = c;
  }

  void put(std::string_view piece) {
    if (piece.size() > bytes_.size() - used_) {
      flush();
      if (piece.size() > bytes_.size()) {
        out_.append(piece);
        return;
      }
    }
    std::memcpy(bytes_.data() + used_, piece.data(), piece.size());
    used_ += piece.size();
  }

  /// To be called at the end.
  void flush() {
    out_.append(bytes_.data(), used_);
    used_ = 0;
  }

 private:
  std::string& out_;
  std::size_t used_ = 0;
  std::array<char, 256> bytes_;
};

void putEscape(Block& block, char letter, unsigned char byte) {
  static constexpr char hex[] = "0123456789abcdef";
  block.put('\\');
  block.put(letter);
  if (letter != 'u') return;
  block.put("00");
  block.put(hex[byte >> 4]);
  block.put(hex[byte & 15]);
}

/// What a small answer takes; growing to it from nothing would copy it half a dozen times.
constexpr std::size_t firstCapacity = 1000;

class Writer {
 public:
  explicit Writer(std::string& out) : out_(out) {}

  void write(const json::value& value, std::size_t depth) {
    switch (value.kind()) {
      case json::kind::null:
        out_ += "null";
        break;
      case json::kind::bool_:
        out_ += value.get_bool() ? "true" : "false";
        break;
      case json::kind::int64:
        number(value.get_int64());
        break;
      case json::kind::uint64:
        number(value.get_uint64());
        break;
      case json::kind::double_:
        real(value.get_double());
        break;
      case json::kind::string:
        appendJSONString(out_, value.get_string());
        break;
      case json::kind::array:
        array(value.get_array(), depth);
        break;
      case json::kind::object:
        object(value.get_object(), depth);
        break;
    }
  }

  void object(const json::object& map, std::size_t depth) {
    checkDepth(depth);
    out_ += '{';
    if (inOrder(map)) {
      for (auto it = map.begin(); it != map.end(); ++it) member(*it, it == map.begin(), depth);
    } else {
      // The vector lives only while this level is written, and documents come
      // sorted from the store, so this path is the rare one.
      std::vector<const json::key_value_pair*> members;
      members.reserve(map.size());
      for (const auto& pair : map) members.push_back(&pair);
      std::ranges::sort(members, [](const auto* a, const auto* b) { return less(*a, *b); });
      for (const auto* pair : members) member(*pair, pair == members.front(), depth);
    }
    out_ += '}';
  }

 private:
  static bool less(const json::key_value_pair& a, const json::key_value_pair& b) {
    return std::string_view(a.key()) < std::string_view(b.key());
  }

  static bool inOrder(const json::object& map) {
    return std::ranges::is_sorted(map, [](const auto& a, const auto& b) { return less(a, b); });
  }

  static void checkDepth(std::size_t depth) {
    if (depth > jsonDepthLimit) {
      throw JSONWriteFailure(fmt::format("cannot write JSON nested deeper than {} levels", jsonDepthLimit));
    }
  }

  void member(const json::key_value_pair& pair, bool first, std::size_t depth) {
    if (!first) out_ += ',';
    appendJSONString(out_, pair.key());
    out_ += ':';
    write(pair.value(), depth + 1);
  }

  void array(const json::array& values, std::size_t depth) {
    checkDepth(depth);
    out_ += '[';
    bool first = true;
    for (const auto& value : values) {
      if (!first) out_ += ',';
      first = false;
      write(value, depth + 1);
    }
    out_ += ']';
  }

  template <class Number>
  void number(Number value) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out_.append(digits, end);
  }

  void real(double value) {
    if (!std::isfinite(value)) {
      throw JSONWriteFailure(std::isnan(value) ? "NaN has no JSON form" : "infinity has no JSON form");
    }
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out_.append(digits, end);
    if (std::none_of(digits, end, [](char c) { return c == '.' || c == 'e'; })) out_ += ".0";
  }

  std::string& out_;
};

template <class Value>
void writeOrRestore(std::string& out, const Value& value, std::size_t depth = 1) {
  const auto before = out.size();
  try {
    Writer writer(out);
    if constexpr (std::is_same_v<Value, JSONMap>) {
      writer.object(value, depth);
    } else {
      writer.write(value, depth);
    }
  } catch (...) {
    out.resize(before);
    throw;
  }
}

}  // namespace

void appendJSONString(std::string& out, std::string_view text) {
  Block block(out);
  block.put('"');
  const char* run = text.data();
  const char* const end = run + text.size();
  for (const char* at = run; at != end;) {
    // Eight plain ASCII bytes at a time: most text is nothing else.
    if (end - at >= 8) {
      std::uint64_t bytes;
      std::memcpy(&bytes, at, 8);
      constexpr std::uint64_t ones = 0x0101010101010101, high = 0x8080808080808080;
      const std::uint64_t quote = bytes ^ (ones * '"');
      const std::uint64_t slash = bytes ^ (ones * '\\');
      const std::uint64_t special = (bytes - ones * 0x20) | (quote - ones) | (slash - ones) | bytes;
      if ((special & high) == 0) {
        at += 8;
        continue;
      }
      // A borrow runs upwards only, so that the lowest mark is a true one.
      if constexpr (std::endian::native == std::endian::little) at += std::countr_zero(special & high) / 8;
    }
    const char escape = escapes[static_cast<unsigned char>(*at)];
    if (escape == 0) {
      ++at;
    } else if (escape == 1) {
      const auto length = utf8SequenceLength(std::string_view(at, end));
      if (length == 0) throw JSONWriteFailure("a string is not valid UTF-8");
      at += length;
    } else {
      block.put({run, at});
      putEscape(block, escape, static_cast<unsigned char>(*at));
      run = ++at;
    }
  }
  block.put({run, end});
  block.put('"');
  block.flush();
}

void appendJSON(std::string& out, const JSONValue& value) {
  writeOrRestore(out, value);
}

void appendJSON(std::string& out, const JSONValue& value, std::size_t depth) {
  writeOrRestore(out, value, depth);
}

void appendJSON(std::string& out, const JSONMap& map) {
  writeOrRestore(out, map);
}

std::string writeJSON(const JSONValue& value) {
  std::string out;
  out.reserve(firstCapacity);
  appendJSON(out, value);
  return out;
}

std::string writeJSON(const JSONMap& map) {
  std::string out;
  out.reserve(firstCapacity);
  appendJSON(out, map);
  return out;
}

}  // namespace vorlane
