#include "tools/ledgerly/LedgerlyArguments.h"

#include "base/JSONArguments.h"
#include "base/Text.h"
#include "tools/ledgerly/LedgerlyText.h"

#include <algorithm>
#include <utility>

namespace vorlane::ledgerly {
namespace {

std::optional<std::string> trimmedOrNothing(std::string_view text) {
  auto left = trimmed(text);
  if (left.empty()) return std::nullopt;
  return left;
}

}  // namespace

std::optional<std::string> plainText(const JSONMap& arguments, std::string_view key) {
  return trimmedOrNothing(json::stringOr(arguments, key));
}

std::optional<std::string> decodedText(const JSONMap& arguments, std::string_view key) {
  return trimmedOrNothing(entityDecoded(json::stringOr(arguments, key)));
}

const JSONArray* textList(const JSONMap& arguments, std::string_view key) {
  const auto* values = json::array(arguments, key);
  if (values == nullptr) return nullptr;
  const auto isText = [](const JSONValue& value) { return value.is_string(); };
  return std::ranges::all_of(*values, isText) ? values : nullptr;
}

void putDecodedText(JSONMap& body, const JSONMap& arguments, std::string_view key) {
  if (const auto text = decodedText(arguments, key)) body[key] = *text;
}

void putTextList(JSONMap& body, const JSONMap& arguments, std::string_view key) {
  if (const auto* list = textList(arguments, key)) body[key] = *list;
}

void putWholeNumber(JSONMap& body, const JSONMap& arguments, std::string_view key) {
  if (const auto number = json::integer(arguments, key)) body[key] = *number;
}

void putAsGiven(JSONMap& body, const JSONMap& arguments, std::string_view key) {
  if (const auto* value = json::find(arguments, key)) body[key] = *value;
}

}  // namespace vorlane::ledgerly
