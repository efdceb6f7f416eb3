#include "tools/ledgerly/LedgerlyCategoryTools.h"

#include "base/JSONArguments.h"
#include "base/Text.h"
#include "tools/ledgerly/LedgerlyDocument.h"
#include "tools/ledgerly/LedgerlyText.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <fmt/format.h>

#include <expected>
#include <string>
#include <utility>

namespace vorlane {
namespace {

constexpr char noCategory[] = "no category matched";

// An edit reports what it did, or the text by which it refused. A refusal is raised only
// after the document has been written back as it was.

JSONValue valueOrEmptyString(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  return value == nullptr ? JSONValue("") : *value;
}

/// How many elements would go with the category. All of them count, also where the
/// array holds more than items: a removal must not take unasked what it cannot read.
std::size_t itemCount(const JSONMap& category) {
  const auto* items = json::array(category, "items");
  return items == nullptr ? 0 : items->size();
}

Task<JSONMap> deleteCategory(LedgerlyQueries queries, JSONMap arguments, Identity) {
  auto remove = [id = json::string(arguments, "categoryId"), name = json::string(arguments, "categoryName"),
                 deleteItems =
                     json::booleanOr(arguments, "deleteItems", false)](JSONMap& document) -> EditReport {
    const auto position = ledgerly::findCategory(document, id, name);
    if (!position) return std::unexpected(noCategory);
    auto& categories = *ledgerly::categories(document);
    const auto& category = categories[*position].get_object();
    const auto count = itemCount(category);
    if (count > 0 && !deleteItems) {
      return std::unexpected(fmt::format(
          "category holds {} item(s) — pass deleteItems: true to remove them along with it", count));
    }
    JSONMap removed{{"id", valueOrEmptyString(category, "id")},
                    {"name", valueOrEmptyString(category, "name")},
                    {"itemsRemoved", count}};
    categories.erase(categories.begin() + *position);
    return removed;
  };
  auto report = co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(remove));
  if (!report) throw ledgerlyFailure(409, report.error());
  co_return JSONMap{{"deleted", *std::move(report)}};
}

Task<JSONMap> renameCategory(LedgerlyQueries queries, JSONMap arguments, Identity) {
  auto newName = trimmed(entityDecoded(json::stringOr(arguments, "newName")));
  if (newName.empty()) throw ledgerlyFailure(400, "newName is required");
  auto rename = [id = json::string(arguments, "categoryId"), name = json::string(arguments, "categoryName"),
                 newName = std::move(newName)](JSONMap& document) -> EditReport {
    const auto position = ledgerly::findCategory(document, id, name);
    if (!position) return std::unexpected(noCategory);
    auto& category = (*ledgerly::categories(document))[*position].get_object();
    JSONMap renamed{{"id", valueOrEmptyString(category, "id")},
                    {"name", newName},
                    {"previousName", valueOrEmptyString(category, "name")}};
    category["name"] = newName;
    return renamed;
  };
  auto report = co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(rename));
  if (!report) throw ledgerlyFailure(404, report.error());
  co_return JSONMap{{"category", *std::move(report)}};
}

constexpr ToolProperty removal[] = {
    {"sheetId", "string"}, {"categoryId", "string"}, {"categoryName", "string"}, {"deleteItems", "boolean"}};
constexpr std::string_view removalRequired[] = {"sheetId"};

constexpr ToolProperty renaming[] = {
    {"sheetId", "string"}, {"categoryId", "string"}, {"categoryName", "string"}, {"newName", "string"}};
constexpr std::string_view renamingRequired[] = {"sheetId", "newName"};

constexpr LedgerlyTool table[] = {
    {"ledgerly_delete_category",
     "Remove a category and everything in it. Identify it by categoryId or by categoryName (exact, "
     "case-insensitive). Refuses when the category holds items unless deleteItems is true, so a "
     "mistyped-but-populated category cannot be dropped by accident.",
     {removal, removalRequired},
     deleteCategory},
    {"ledgerly_rename_category",
     "Rename one category in place, keeping its id and its items. Identify it by categoryId or by "
     "categoryName (exact, case-insensitive).",
     {renaming, renamingRequired},
     renameCategory},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyCategoryTools::tools(const LedgerlyQueries& queries) {
  return toolDefinitions(table, queries);
}

}  // namespace vorlane
