#include "store/LedgerlySheetPayload.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

/// Takes the array of objects under `key` out of `map`, or an empty array when it
/// holds anything else.
JSONArray takeObjects(JSONMap& map, std::string_view key) {
  auto* values = json::arrayOfObjects(map, key);
  return values == nullptr ? JSONArray() : std::exchange(*values, JSONArray());
}

std::optional<std::string> takeNonEmptyString(JSONMap& map, std::string_view key) {
  auto text = json::nonEmptyString(map, key);
  map.erase(key);
  return text;
}

void ensureID(JSONMap& map) {
  if (!map.contains("id")) map["id"] = newUppercaseUUID();
}

void ensureString(JSONMap& map, std::string_view key, std::string_view fallback) {
  auto& value = map[key];
  if (!value.is_string()) value = fallback;
}

/// Puts `text` under `key` into the object under `holder`, which is made when it is
/// no object.
void putInto(JSONMap& map, std::string_view holder, std::string_view key, const std::string& text) {
  auto& value = map[holder];
  if (!value.is_object()) value.emplace_object();
  value.get_object()[key] = text;
}

JSONValue cloudNotes(const JSONMap& item) {
  const auto* notes = json::find(item, "notes");
  if (notes != nullptr && notes->is_object()) return JSONValue(*notes, item.storage());
  JSONMap byApplication(item.storage());
  if (auto text = json::nonEmptyString(item, "notes")) byApplication["ledgerly"] = *text;
  return byApplication;
}

/// The quantity as the tools write it wins; else the cloud's own two stay, or the
/// one of them stands for both.
void setQuantity(JSONMap& item, std::optional<double> qty) {
  if (qty) {
    item["quantity"] = *qty;
    item["baseQuantity"] = *qty;
    return;
  }
  if (item.contains("baseQuantity")) return;
  const auto* quantity = json::find(item, "quantity");
  if (quantity == nullptr || !json::number(*quantity)) return;
  const JSONValue copy = *quantity;
  item["baseQuantity"] = copy;
}

void convertItem(JSONMap& item, std::int64_t index) {
  const auto qty = json::number(item, "qty");
  item.erase("qty");
  const auto vendor = takeNonEmptyString(item, "vendor");
  const auto location = takeNonEmptyString(item, "location");
  ensureID(item);
  ensureString(item, "name", "");
  item["checked"] = json::booleanOr(item, "checked", false);
  item["price"] = json::number(item, "price").value_or(0);
  item["notes"] = cloudNotes(item);
  item["order"] = index;
  setQuantity(item, qty);
  if (vendor) putInto(item, "budgetFields", "vendor", *vendor);
  if (location) putInto(item, "customFields", "location", *location);
}

void convertCategory(JSONMap& category, std::int64_t index) {
  ensureID(category);
  ensureString(category, "name", "Uncategorized");
  JSONArray items = takeObjects(category, "items");
  std::int64_t itemIndex = 0;
  for (auto& item : items) convertItem(item.get_object(), itemIndex++);
  category["items"] = std::move(items);
  category["expanded"] = json::booleanOr(category, "expanded", true);
  if (json::array(category, "subcategories") == nullptr) category["subcategories"] = JSONArray();
  category["order"] = index;
}

}  // namespace

JSONMap LedgerlySheetPayload::cloudForm(JSONMap document) {
  JSONArray categories = takeObjects(document, "categories");
  std::int64_t index = 0;
  for (auto& category : categories) convertCategory(category.get_object(), index++);
  document["categories"] = std::move(categories);
  return document;
}

}  // namespace vorlane
