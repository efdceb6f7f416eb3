#include "base/JSON.h"
#include "base/JSONEvents.h"

#include <fmt/format.h>
#include <boost/json/value_stack.hpp>

#include <charconv>
#include <cmath>

namespace vorlane {
namespace {

namespace json = boost::json;

/// Builds the value tree. It differs from the library's own handler in its
/// doubles, which that one may read a few units off in the last place: a price
/// would then drift each time its sheet is edited.
class DocumentHandler : public JSONEventLimits {
 public:
  explicit DocumentHandler(json::storage_ptr storage) { stack_.reset(std::move(storage)); }
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
    const auto exact = exactJSONDouble(rough, text);
    if (!exact) {
      ec = json::error::exponent_overflow;
      return false;
    }
    stack_.push_double(*exact);
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

std::optional<double> exactJSONDouble(double rough, std::string_view text) {
  double exact = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), exact);
  if (status != std::errc::result_out_of_range) return exact;
  // Too small rounds to zero, as everywhere; too large has no value here.
  if (std::abs(rough) > 1) return std::nullopt;
  return std::copysign(0.0, rough);
}

void requireJSONContainer(std::string_view text) {
  const auto top = text.find_first_not_of(" \t\r\n");
  if (top == std::string_view::npos) throw JSONParseFailure("invalid JSON: the text is empty");
  if (text[top] == '{' || text[top] == '[') return;
  throw JSONParseFailure(
      fmt::format("invalid JSON at byte {}: expected an object or an array at the top", top));
}

void failJSON(std::size_t byte, const json::error_code& error) {
  throw JSONParseFailure(fmt::format("invalid JSON at byte {}: {}", byte, reason(error)));
}

JSONValue parseJSON(std::string_view text, json::storage_ptr storage) {
  JSONEventReader<DocumentHandler> reader(std::move(storage));
  return reader.read(text).release();
}

JSONMap parseJSONMap(std::string_view text, std::string_view notAnObject) {
  auto value = parseJSON(text);
  if (!value.is_object()) throw JSONParseFailure(std::string(notAnObject));
  return std::move(value.get_object());
}

}  // namespace vorlane
