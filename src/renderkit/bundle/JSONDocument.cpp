#include "renderkit/bundle/JSONDocument.h"

#include "renderkit/bundle/BakeBundleError.h"

#include <fmt/format.h>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value_stack.hpp>

#include <charconv>
#include <cmath>
#include <limits>

namespace renderkit {
namespace {

namespace json = boost::json;

constexpr std::size_t depthLimit = 512;

/// Builds the value tree. The library's own handler may read a double a few units off in
/// its last place; light levels and poses are to survive exactly.
class DocumentHandler {
 public:
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();

  json::value release() { return stack_.release(); }

  bool on_document_begin(json::error_code&) {
    // The tree is read once and dropped as a whole.
    stack_.reset(json::make_shared_resource<json::monotonic_resource>());
    return true;
  }
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
  bool on_double(double rough, json::string_view text, json::error_code&) {
    double exact = rough;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), exact);
    if (status == std::errc::result_out_of_range) {
      exact = std::copysign(std::abs(rough) > 1 ? std::numeric_limits<double>::infinity() : 0.0, rough);
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

/// Writes with an indentation, or on one line where `indent` is below 0.
void print(std::string& out, const json::value& value, int indent) {
  const auto breakLine = [&](int depth) {
    if (indent >= 0) out += '\n' + std::string(static_cast<std::size_t>(2 * depth), ' ');
  };
  const int inner = indent < 0 ? indent : indent + 1;
  bool first = true;
  const auto next = [&] {
    if (!first) out += ',';
    if (!first && indent < 0) out += ' ';
    first = false;
    breakLine(inner);
  };
  if (const auto* object = value.if_object()) {
    out += '{';
    for (const auto& [key, member] : *object) {
      next();
      out += json::serialize(json::value(key)) + ": ";
      print(out, member, inner);
    }
    if (!first) breakLine(indent);
    out += '}';
  } else if (const auto* array = value.if_array()) {
    // Numbers stay side by side: a matrix over sixteen lines is hard to read.
    const bool flat = indent >= 0 && !array->empty() && array->front().is_number();
    out += '[';
    for (const auto& element : *array) {
      if (flat) {
        if (!first) out += ", ";
        first = false;
      } else {
        next();
      }
      print(out, element, inner);
    }
    if (!first && !flat) breakLine(indent);
    out += ']';
  } else if (value.is_double() && std::isfinite(value.get_double())) {
    out += fmt::format("{}", value.get_double());
  } else {
    out += json::serialize(value);
  }
}

}  // namespace

json::value parseJSON(std::string_view text, std::string_view entry) {
  json::parse_options options;
  options.max_depth = depthLimit;
  json::basic_parser<DocumentHandler> parser(options);
  json::error_code error;
  const auto consumed = parser.write_some(false, text.data(), text.size(), error);
  if (!error && consumed < text.size()) error = json::error::extra_data;
  if (error) {
    throw BundleDocumentError(
        fmt::format("[bakeBundle] {} is no JSON: {} at byte {}", entry, error.message(), consumed));
  }
  return parser.handler().release();
}

std::string printJSON(const json::value& value) {
  std::string out;
  print(out, value, 0);
  return out;
}

std::string printJSONLine(const json::value& value) {
  std::string out;
  print(out, value, -1);
  return out;
}

}  // namespace renderkit
