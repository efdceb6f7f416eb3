#include "devcloud/SheetItems.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"

namespace vorlane::devcloud {
namespace {

/// The array under `key`, made when it is missing.
JSONArray& arrayAt(JSONMap& map, std::string_view key) {
  JSONValue& value = map[key];
  if (!value.is_array()) value = JSONArray();
  return value.get_array();
}

void collect(JSONMap& level, std::string_view children, std::string_view key, std::string_view wanted,
             std::vector<SheetItem>& found) {
  for (auto& value : arrayAt(level, children)) {
    JSONMap* const category = value.if_object();
    if (!category) continue;
    for (auto& candidate : arrayAt(*category, "items")) {
      JSONMap* const item = candidate.if_object();
      if (!item || json::string(*item, key) != wanted) continue;
      found.push_back({item, json::stringOr(*category, "name")});
    }
    collect(*category, "subcategories", key, wanted, found);
  }
}

JSONMap& categoryNamed(JSONArray& categories, std::string_view name) {
  for (auto& value : categories) {
    JSONMap* const category = value.if_object();
    if (category && json::string(*category, "name") == name) return *category;
  }
  categories.push_back(JSONMap{{"id", newUppercaseUUID()},
                               {"name", name},
                               {"items", JSONArray()},
                               {"expanded", true},
                               {"subcategories", JSONArray()},
                               {"order", categories.size()}});
  return categories.back().get_object();
}

}  // namespace

std::vector<SheetItem> findSheetItems(JSONMap& document, std::string_view idOrName) {
  std::vector<SheetItem> found;
  for (const std::string_view key : {"id", "name"}) {
    if (found.empty()) collect(document, "categories", key, idOrName, found);
  }
  return found;
}

SheetItem addSheetItem(JSONMap& document, std::string_view category, std::string_view subcategory,
                       std::string_view name) {
  JSONMap* level = &categoryNamed(arrayAt(document, "categories"), category);
  if (!subcategory.empty()) level = &categoryNamed(arrayAt(*level, "subcategories"), subcategory);
  JSONArray& items = arrayAt(*level, "items");
  items.push_back(JSONMap{{"id", newUppercaseUUID()},
                          {"name", name},
                          {"checked", false},
                          {"price", 0.0},
                          {"quantity", 1},
                          {"baseQuantity", 1},
                          {"notes", JSONMap()},
                          {"order", items.size()}});
  return {&items.back().get_object(), std::string(subcategory.empty() ? category : subcategory)};
}

}  // namespace vorlane::devcloud
