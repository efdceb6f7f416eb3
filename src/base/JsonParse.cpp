#include "base/Json.h"

#include <fmt/format.h>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>

#include <charconv>
#include <cmath>

namespace vorlane {
namespace {

namespace json = boost::json;

/// Builds the value tree. It differs from the library's own handler in its
/// doubles, which that one may read a few units off in the last place: a price
/// would then drift each time its sheet is edited.
class DocumentHandler {
 public:
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();

  DocumentHandler() { stack_.reset(); }
  json::value release() { return stack_.release(); }

  bool on_document_begin(json::error_code&) { return true; }
  bool on_document_end(json::error_code&) { return true; }
  bool on_object_begin(json::error_code&) { return true; }
  bool on_object_end(std::size_t count, json::error_code&) {
    stack_.push_object(count);
    return true;
  }
  bool on_array_begin(json::error_code&) { return true; }
  bool on_array_end(std::size_t count, json::error_code&) {
    stack_.push_array(count);
    return true;
  }
  bool on_key_part(json::string_view part, std::size_t, json::error_code&) {
    stack_.push_chars(part);
    return true;
  }
  bool on_key(json::string_view part, std::size_t, json::error_code&) {
    stack_.push_key(part);
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t, json::error_code&) {
    stack_.push_chars(part);
    return true;
  }
  bool on_string(json::string_view part, std::size_t, json::error_code&) {
    stack_.push_string(part);
    return true;
  }
  bool on_number_part(json::string_view, json::error_code&) { return true; }
  bool on_int64(std::int64_t number, json::string_view, json::error_code&) {
    stack_.push_int64(number);
    return true;
  }
  bool on_uint64(std::uint64_t number, json::string_view, json::error_code&) {
    stack_.push_uint64(number);
    return true;
  }
  bool on_double(double rough, json::string_view text, json::error_code& ec) {
    double exact = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), exact);
    if (status == std::errc::result_out_of_range) {
      // Too small rounds to zero, as everywhere; too large has no value here.
      if (std::abs(rough) > 1) {
        ec = json::error::exponent_overflow;
        return false;
      }
      exact = std::copysign(0.0, rough);
    }
    stack_.push_double(exact);
    return true;
  }
  bool on_bool(bool value, json::error_code&) {
    stack_.push_bool(value);
    return true;
  }
  bool on_null(json::error_code&) {
    stack_.push_null();
    return true;
  }
  bool on_comment_part(json::string_view, json::error_code&) { return true; }
  bool on_comment(json::string_view, json::error_code&) { return true; }

 private:
  json::value_stack stack_;
};

std::string reason(const json::error_code& ec) {
  if (ec == json::error::too_deep) return fmt::format("nesting deeper than {} levels", jsonDepthLimit);
  if (ec == json::error::exponent_overflow) return "number out of range";
  if (ec == json::error::incomplete) return "unexpected end";
  return ec.message();
}

}  // namespace

JSONValue parseJSON(std::string_view text) {
  // The library builds the whole tree before anybody can ask what is on top.
  const auto top = text.find_first_not_of(" \t\r\n");
  if (top == std::string_view::npos) throw JSONParseFailure("invalid JSON: the text is empty");
  if (text[top] != '{' && text[top] != '[') {
    throw JSONParseFailure(
        fmt::format("invalid JSON at byte {}: expected an object or an array at the top", top));
  }
  json::parse_options options;
  options.max_depth = jsonDepthLimit;
  json::basic_parser<DocumentHandler> parser(options);
  json::error_code ec;
  const auto consumed = parser.write_some(false, text.data(), text.size(), ec);
  if (!ec && consumed < text.size()) ec = json::error::extra_data;
  if (ec) throw JSONParseFailure(fmt::format("invalid JSON at byte {}: {}", consumed, reason(ec)));
  return parser.handler().release();
}

JSONMap parseJSONMap(std::string_view text, std::string_view notAnObject) {
  auto value = parseJSON(text);
  if (!value.is_object()) throw JSONParseFailure(std::string(notAnObject));
  return std::move(value.get_object());
}

}  // namespace vorlane
