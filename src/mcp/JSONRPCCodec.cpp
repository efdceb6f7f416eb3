#include "mcp/JSONRPCCodec.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace vorlane::JSONRPCCodec {
namespace {

using Limits = std::numeric_limits<std::int64_t>;

/// Truncates, and clamps what lies beyond 64 bits: the conversion of such a
/// double would be undefined.
std::int64_t clamped(double number) {
  // 2^63 exactly; the largest int64 has no double of its own.
  constexpr double bound = 9223372036854775808.0;
  if (number >= bound) return Limits::max();
  if (number < -bound) return Limits::min();
  return static_cast<std::int64_t>(number);
}

JSONRPCID idFrom(JSONValue& value) {
  switch (value.kind()) {
    case boost::json::kind::string:
      return std::string(value.get_string());
    case boost::json::kind::int64:
      return value.get_int64();
    case boost::json::kind::uint64:
      return Limits::max();  // only what int64 cannot hold comes as uint64
    case boost::json::kind::double_:
      return clamped(value.get_double());
    case boost::json::kind::bool_:
      return std::int64_t{value.get_bool()};
    default:
      return {};
  }
}

void appendID(std::string& out, const JSONRPCID& id) {
  if (const auto* text = std::get_if<std::string>(&id.value())) {
    appendJSONString(out, *text);
  } else if (const auto* number = std::get_if<std::int64_t>(&id.value())) {
    fmt::format_to(std::back_inserter(out), "{}", *number);
  } else {
    out += "null";
  }
}

void appendError(std::string& out, const JSONRPCError& error) {
  fmt::format_to(std::back_inserter(out), R"({{"code":{},)", error.code);
  if (error.data) {
    out += R"("data":)";
    appendJSON(out, *error.data);
    out += ',';
  }
  out += R"("message":)";
  appendJSONString(out, error.message);
  out += '}';
}

}  // namespace

JSONRPCRequest decodeRequest(std::string_view message) {
  auto document = parseJSON(message);
  auto* object = document.if_object();
  if (object == nullptr) throw JSONRPCDecodeError(JSONRPCErrorCode::parseError, "not a JSON object");
  const auto* version = object->if_contains("jsonrpc");
  const auto* method = object->if_contains("method");
  if (version == nullptr || !version->is_string() || version->get_string() != "2.0" || method == nullptr ||
      !method->is_string()) {
    throw JSONRPCDecodeError(JSONRPCErrorCode::invalidRequest, "missing jsonrpc/method");
  }
  JSONRPCRequest request;
  request.method = std::string(method->get_string());
  if (auto* id = object->if_contains("id")) request.id = idFrom(*id);
  request.isNotification = !request.id;
  if (auto* params = object->if_contains("params"); params != nullptr && params->is_object()) {
    request.params = std::move(params->get_object());
  }
  return request;
}

// Written straight into one text, in the order that sorting the keys would
// give, so that a large result is neither copied nor sorted a second time.
std::string encodeResponse(const JSONRPCResponse& response) {
  std::string out;
  out.reserve(1000);  // what a small answer takes
  out += '{';
  if (!response.result && response.error) {
    out += R"("error":)";
    appendError(out, *response.error);
    out += ',';
  }
  out += R"("id":)";
  appendID(out, response.id);
  out += R"(,"jsonrpc":"2.0")";
  if (response.result) {
    out += R"(,"result":)";
    appendJSON(out, *response.result);
  }
  out += '}';
  return out;
}

std::string encodeParseError(std::string description) {
  JSONRPCResponse response;
  response.error = JSONRPCError{JSONRPCErrorCode::parseError, std::move(description), std::nullopt};
  return encodeResponse(response);
}

}  // namespace vorlane::JSONRPCCodec
