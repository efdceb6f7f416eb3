#pragma once

#include "base/JSON.h"

#include <boost/json/basic_parser_impl.hpp>

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace vorlane {

/// What a handler of events needs that builds no tree; derive from it.
struct JSONEventLimits {
  static constexpr std::size_t max_object_size = JSONMap::max_size();
  static constexpr std::size_t max_array_size = JSONArray::max_size();
  static constexpr std::size_t max_key_size = boost::json::string::max_size();
  static constexpr std::size_t max_string_size = boost::json::string::max_size();
};

/// The nearest double to a number's text, of which the library's own reading may be a few
/// units off in the last place; nothing when it is beyond a double's range.
std::optional<double> exactJSONDouble(double rough, std::string_view text);

/// Throws JSONParseFailure unless the text begins with an object or an array.
void requireJSONContainer(std::string_view text);
/// Throws the JSONParseFailure of an error at that byte.
[[noreturn]] void failJSON(std::size_t byte, const boost::json::error_code& error);

/// Hands a document to a handler, event by event, and so reads one that is too large to
/// be held as a tree. It takes what parseJSON takes and refuses the rest in the same words.
/// The handler is one of boost::json::basic_parser; it must refuse a number that
/// exactJSONDouble refuses, and it meets a repeated key each time.
template <class Handler>
class JSONEventReader {
 public:
  template <class... Arguments>
  explicit JSONEventReader(Arguments&&... arguments)
      : parser_(options(), std::forward<Arguments>(arguments)...) {}

  /// Reads one whole document, once. Throws JSONParseFailure.
  Handler& read(std::string_view text);

  // The same piece by piece: `begin` with the whole text, then each piece of it in order and
  // whether there are more. A text of no piece is no document.
  void begin(std::string_view text) const { requireJSONContainer(text); }
  void feed(std::string_view piece, bool more);
  Handler& handler() { return parser_.handler(); }

 private:
  static boost::json::parse_options options() {
    boost::json::parse_options options;
    options.max_depth = jsonDepthLimit;
    return options;
  }

  boost::json::basic_parser<Handler> parser_;
  std::size_t fed_ = 0;
};

template <class Handler>
Handler& JSONEventReader<Handler>::read(std::string_view text) {
  // The library reads to the end before anybody can ask what is on top.
  begin(text);
  feed(text, false);
  return parser_.handler();
}

template <class Handler>
void JSONEventReader<Handler>::feed(std::string_view piece, bool more) {
  boost::json::error_code error;
  const auto consumed = parser_.write_some(more, piece.data(), piece.size(), error);
  if (!error && consumed < piece.size()) error = boost::json::error::extra_data;
  if (error) failJSON(fed_ + consumed, error);
  fed_ += piece.size();
}

}  // namespace vorlane
