#include "devcloud/Message.h"

#include "base/Text.h"

#include <charconv>

namespace vorlane::devcloud {

std::optional<std::string> Request::header(std::string_view name) const {
  const std::string wanted = asciiLowercased(name);
  for (const auto& [key, value] : headers) {
    if (asciiLowercased(key) == wanted) return value;
  }
  return std::nullopt;
}

std::optional<std::string> Request::queryValue(std::string_view name) const {
  const auto fields = parseForm(query);
  if (!fields) throw HTTPError(400, {{"error", "the query does not decode"}});
  for (const auto& [key, value] : *fields) {
    if (key == name) return value;
  }
  return std::nullopt;
}

const std::string& Request::parameter(std::string_view name) const {
  return parameters.find(name)->second;
}

Response Response::json(int status, const JSONMap& body) {
  Response response;
  response.status = status;
  response.body = writeJSON(body);
  return response;
}

HTTPError::HTTPError(int status, JSONMap body)
    : Failure("The request ends with HTTP " + std::to_string(status)),
      response_(Response::json(status, body)) {}

HTTPError apiError(int status, std::string_view text) {
  return HTTPError(status, {{"success", false}, {"error", text}});
}

JSONMap bodyObject(const Request& request) {
  try {
    return parseJSONMap(request.body);
  } catch (const JSONParseFailure& failure) {
    throw apiError(400, "body: " + failure.description());
  }
}

std::optional<std::string> percentDecoded(std::string_view text, bool plusIsBlank) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+' && plusIsBlank) {
      out += ' ';
    } else if (text[i] != '%') {
      out += text[i];
    } else {
      unsigned value = 0;
      const std::string_view digits = text.substr(i + 1, 2);
      const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
      if (digits.size() != 2 || error != std::errc() || end != digits.data() + 2) return std::nullopt;
      out += static_cast<char>(value);
      i += 2;
    }
  }
  return out;
}

std::optional<std::vector<std::pair<std::string, std::string>>> parseForm(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> fields;
  while (!text.empty()) {
    const std::string_view field = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(text.size(), field.size() + 1));
    if (field.empty()) continue;
    const std::size_t equals = std::min(field.find('='), field.size());
    auto name = percentDecoded(field.substr(0, equals), true);
    auto value = percentDecoded(field.substr(std::min(equals + 1, field.size())), true);
    if (!name || !value || !isValidUTF8(*name) || !isValidUTF8(*value)) return std::nullopt;
    fields.emplace_back(std::move(*name), std::move(*value));
  }
  return fields;
}

std::string webDateText(Date date) {
  std::string text = storageText(date) + "Z";
  text[10] = 'T';
  return text;
}

}  // namespace vorlane::devcloud
