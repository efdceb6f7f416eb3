#include "tools/ledgerly/LedgerlyReadTools.h"

#include "base/JSONArguments.h"
#include "store/SnapshotCodec.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

/// The categories of a parsed document; anything but an array of objects reads as none.
JSONArray takeCategories(JSONMap& document) {
  auto* categories = json::arrayOfObjects(document, "categories");
  return categories == nullptr ? JSONArray() : std::move(*categories);
}

JSONValue valueOrEmptyString(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  return value == nullptr ? JSONValue("") : *value;
}

Task<JSONMap> listSheets(LedgerlyQueries queries, JSONMap, Identity identity) {
  JSONArray sheets;
  for (const auto& sheet : queries.listMeta(identity.userID)) {
    // Built in place: a list is what assistants ask for most.
    auto& shown = sheets.emplace_back(boost::json::object_kind).get_object();
    shown.reserve(3);
    shown.emplace("id", sheet.id);
    shown.emplace("title", sheet.title);
    shown.emplace("updatedAt", iso8601Text(sheet.updatedAt));
  }
  co_return JSONMap{{"sheets", std::move(sheets)}};
}

Task<JSONMap> getSheet(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "sheetId");
  const auto row = queries.fetch(id);
  if (!row) throw sheetNotFound(id);
  auto document = SnapshotCodec::decodeInBlock(row->data);
  document["id"] = row->id;
  document["title"] = row->title;
  co_return document;
}

// An unknown sheet has no categories and no items here, and is no error.

Task<JSONMap> listCategories(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "sheetId");
  const auto row = queries.fetch(id);
  if (!row) co_return JSONMap{{"categories", JSONArray()}};
  auto document = SnapshotCodec::decodeInBlock(row->data);
  JSONArray categories;
  for (const auto& category : takeCategories(document)) {
    const auto& map = category.get_object();
    categories.push_back(
        JSONMap{{"id", valueOrEmptyString(map, "id")}, {"name", valueOrEmptyString(map, "name")}});
  }
  co_return JSONMap{{"sheetId", id}, {"categories", std::move(categories)}};
}

Task<JSONMap> listItems(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "sheetId");
  const auto wanted = json::string(arguments, "categoryId");
  const auto row = queries.fetch(id);
  if (!row) co_return JSONMap{{"items", JSONArray()}};
  auto document = SnapshotCodec::decodeInBlock(row->data);
  JSONArray found(document.storage());
  auto categories = takeCategories(document);
  for (auto& category : categories) {
    const auto categoryID = json::stringOr(category.get_object(), "id");
    if (wanted && *wanted != categoryID) continue;
    auto* items = json::arrayOfObjects(category.get_object(), "items");
    if (items == nullptr) continue;
    for (auto& item : *items) {
      item.get_object()["categoryId"] = categoryID;
      found.push_back(std::move(item));
    }
  }
  JSONMap answer(document.storage());
  answer.emplace("items", std::move(found));
  answer.emplace("sheetId", id);
  co_return answer;
}

constexpr ToolProperty sheetAlone[] = {{"sheetId", "string"}};
constexpr ToolProperty sheetAndCategory[] = {{"sheetId", "string"}, {"categoryId", "string"}};
constexpr std::string_view sheetRequired[] = {"sheetId"};

constexpr LedgerlyTool table[] = {
    {"ledgerly_list_sheets", "List Ledgerly sheets owned by the signed-in user.", {}, listSheets},
    {"ledgerly_get_sheet", "Fetch a full sheet (categories + items).", {sheetAlone, sheetRequired}, getSheet},
    {"ledgerly_list_categories", "List categories in a sheet.", {sheetAlone, sheetRequired}, listCategories},
    {"ledgerly_list_items",
     "Flatten all items across categories; optionally filter to one categoryId.",
     {sheetAndCategory, sheetRequired},
     listItems},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyReadTools::tools(const LedgerlyQueries& queries) {
  return onlyReading(toolDefinitions(table, queries));
}

}  // namespace vorlane
