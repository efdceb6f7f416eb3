#include "tools/ledgerly/LedgerlyImportPayload.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "tools/ledgerly/LedgerlyText.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

using Text = boost::json::string;

using Storage = boost::json::storage_ptr;

// A payload may be megabytes: texts are moved where both sides have the same storage,
// and keys are set in the order in which they will be written, which spares a sort.

std::optional<Text> takeString(JSONMap& map, std::string_view key) {
  auto* value = map.if_contains(key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::move(value->get_string());
}

void decode(Text& text) {
  if (text.find('&') != Text::npos) text = entityDecoded(text);
}

std::optional<Text> takeText(JSONMap& map, std::string_view key) {
  auto text = takeString(map, key);
  if (text) decode(*text);
  return text;
}

void putID(JSONMap& out, JSONMap& given) {
  if (auto id = takeString(given, "id")) {
    out.emplace("id", std::move(*id));
  } else {
    out.emplace("id", newUppercaseUUID());
  }
}

void putName(JSONMap& out, JSONMap& given, std::string_view fallback) {
  if (auto name = takeText(given, "name")) {
    out.emplace("name", std::move(*name));
  } else {
    out.emplace("name", fallback);
  }
}

/// Nothing is put for an empty text.
void putText(JSONMap& out, JSONMap& given, std::string_view key) {
  auto text = takeText(given, key);
  if (text && !text->empty()) out.emplace(key, std::move(*text));
}

/// The tags when every one of them is a string.
void putTags(JSONMap& out, JSONMap& given) {
  auto* tags = given.if_contains("tags");
  if (tags == nullptr || !tags->is_array()) return;
  const auto isString = [](const JSONValue& tag) { return tag.is_string(); };
  if (!std::ranges::all_of(tags->get_array(), isString)) return;
  for (auto& tag : tags->get_array()) decode(tag.get_string());
  out.emplace("tags", std::move(*tags));
}

/// The value under `key`, or under `other` when that key is absent.
JSONValue* firstOf(JSONMap& map, std::string_view key, std::string_view other) {
  auto* value = map.if_contains(key);
  return value == nullptr ? map.if_contains(other) : value;
}

JSONMap takeItem(JSONMap& given, Date present, const Storage& storage) {
  JSONMap item(10, storage);
  item.emplace("checked", json::booleanOr(given, "checked", false));
  putID(item, given);
  putText(item, given, "location");
  putName(item, given, "");
  putText(item, given, "notes");
  if (auto* price = given.if_contains("price")) item.emplace("price", std::move(*price));
  if (auto* quantity = firstOf(given, "qty", "quantity")) item.emplace("qty", std::move(*quantity));
  putTags(item, given);
  putText(item, given, "vendor");
  auto links = normalisedLinks(firstOf(given, "links", "webLinks"), present, storage);
  if (!links.empty()) item.emplace("webLinks", std::move(links));
  return item;
}

JSONMap takeCategory(JSONMap& given, Date present, const Storage& storage) {
  JSONArray items(storage);
  if (auto* list = json::arrayOfObjects(given, "items")) {
    items.reserve(list->size());
    for (auto& item : *list) items.push_back(takeItem(item.get_object(), present, storage));
  }
  JSONMap category(3, storage);
  putID(category, given);
  category.emplace("items", std::move(items));
  putName(category, given, "Uncategorized");
  return category;
}

const JSONArray& itemsOf(const JSONValue& category) {
  return category.get_object().at("items").get_array();
}

/// Nothing for an item without a name.
std::optional<JSONMap> archivedItem(const JSONMap& item) {
  const auto& name = item.at("name").get_string();
  if (name.empty()) return std::nullopt;
  JSONMap archived{{"name", name}};
  if (const auto* qty = json::find(item, "qty"); qty && qty->is_number()) archived["quantity"] = *qty;
  if (const auto* price = json::find(item, "price"); price && price->is_number()) archived["price"] = *price;
  if (const auto* notes = json::find(item, "notes")) archived["notes"] = *notes;
  return archived;
}

}  // namespace

LedgerlyImportPayload LedgerlyImportPayload::take(JSONMap& arguments, Date present,
                                                  boost::json::storage_ptr storage) {
  LedgerlyImportPayload payload{.categories = JSONArray(storage)};
  auto* given = json::arrayOfObjects(arguments, "categories");
  if (given == nullptr) return payload;
  payload.categories.reserve(given->size());
  for (auto& category : *given) {
    payload.categories.push_back(takeCategory(category.get_object(), present, storage));
    payload.itemCount += itemsOf(payload.categories.back()).size();
  }
  return payload;
}

JSONArray LedgerlyImportPayload::archiveForm() const {
  JSONArray archived;
  archived.reserve(categories.size());
  for (const auto& category : categories) {
    JSONArray items;
    for (const auto& item : itemsOf(category)) {
      if (auto kept = archivedItem(item.get_object())) items.push_back(std::move(*kept));
    }
    archived.push_back(JSONMap{{"name", category.get_object().at("name")}, {"items", std::move(items)}});
  }
  return archived;
}

}  // namespace vorlane
