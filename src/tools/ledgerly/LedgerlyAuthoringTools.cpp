#include "tools/ledgerly/LedgerlyAuthoringTools.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/Text.h"
#include "tools/ledgerly/LedgerlyDocument.h"
#include "tools/ledgerly/LedgerlyText.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace vorlane {
namespace {

Task<JSONMap> createSheet(LedgerlyQueries queries, JSONMap arguments, Identity identity) {
  const auto givenTitle = json::string(arguments, "title");
  const auto present = queries.now();
  LedgerlySheetRow row{.id = json::string(arguments, "sheetId").value_or(newUppercaseUUID()),
                       .ownerID = identity.userID,
                       .title = givenTitle ? entityDecoded(*givenTitle) : "Untitled",
                       .data = "{\"categories\":[]}",
                       .createdAt = present,
                       .updatedAt = present};
  JSONMap sheet{{"id", row.id}, {"title", row.title}};
  co_await queries.save(std::move(row));
  co_return JSONMap{{"sheet", std::move(sheet)}};
}

JSONMap itemOf(const JSONMap& arguments, Date present) {
  JSONMap item{{"id", json::string(arguments, "itemId").value_or(newUppercaseUUID())},
               {"name", entityDecoded(json::stringOr(arguments, "name"))},
               {"checked", false}};
  if (const auto* qty = json::find(arguments, "qty")) item["qty"] = *qty;
  const auto notes = entityDecoded(json::stringOr(arguments, "notes"));
  if (!notes.empty()) item["notes"] = notes;
  auto links = normalisedLinks(json::find(arguments, "links"), present);
  if (!links.empty()) item["webLinks"] = std::move(links);
  return item;
}

/// Where a new item goes: the category of that id, else a new one at the end, named
/// by `name`. A name never looks a category up.
struct Destination {
  std::optional<std::string> id;
  std::string name;

  void append(JSONMap& document, const JSONMap& item) const {
    auto& categories = ledgerly::appendableArray(document, "categories");
    if (id) {
      for (auto& category : categories) {
        if (!ledgerly::hasID(category.get_object(), *id)) continue;
        ledgerly::appendableArray(category.get_object(), "items").push_back(item);
        return;
      }
    }
    categories.push_back(
        JSONMap{{"id", id.value_or(newUppercaseUUID())}, {"name", name}, {"items", JSONArray{item}}});
  }
};

Task<JSONMap> addItem(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto item = itemOf(arguments, queries.now());
  Destination destination{.id = json::string(arguments, "categoryId"),
                          .name = entityDecoded(json::stringOr(arguments, "categoryName"))};
  if (destination.name.empty()) destination.name = "Uncategorized";
  auto append = [item, destination = std::move(destination)](JSONMap& document) {
    destination.append(document, item);
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(append));
  co_return JSONMap{{"item", item}};
}

std::string comparableAddress(const JSONValue& link) {
  return link.is_object() ? lowercased(json::stringOr(link.get_object(), "url")) : std::string();
}

/// Adds to the item's links those whose address it does not have yet. What stands
/// in its array stays, whatever it is.
void addLinks(JSONMap& item, const JSONArray& links) {
  if (links.empty()) return;
  auto& value = item["webLinks"];
  if (!value.is_array()) value.emplace_array();
  auto& present = value.get_array();
  std::set<std::string> addresses;
  for (const auto& link : present) addresses.insert(comparableAddress(link));
  for (const auto& link : links) {
    if (!addresses.contains(comparableAddress(link))) present.push_back(link);
  }
}

void mergePatch(JSONMap& item, const JSONMap& patch) {
  for (const auto& [key, value] : patch) {
    if (key == "id" || key == "links") continue;
    if (value.is_string()) {
      item[key] = entityDecoded(value.get_string());
    } else {
      item[key] = value;
    }
  }
}

Task<JSONMap> updateItem(LedgerlyQueries queries, JSONMap arguments, Identity) {
  auto patch = json::objectOrEmpty(arguments, "patch");
  auto links = normalisedLinks(json::find(patch, "links"), queries.now());
  auto merge = [itemID = json::stringOr(arguments, "itemId"), patch = std::move(patch),
                links = std::move(links)](JSONMap& document) -> JSONMap {
    auto* item = ledgerly::findItem(document, itemID);
    if (item == nullptr) return {};
    addLinks(*item, links);
    mergePatch(*item, patch);
    return *item;
  };
  auto merged = co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(merge));
  co_return JSONMap{{"item", std::move(merged)}};
}

Task<JSONMap> deleteItem(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto itemID = json::stringOr(arguments, "itemId");
  auto remove = [itemID](JSONMap& document) {
    auto* categories = ledgerly::categories(document);
    if (categories == nullptr) return;
    for (auto& category : *categories) {
      auto* items = ledgerly::items(category.get_object());
      if (items == nullptr) continue;
      auto* const kept = std::remove_if(items->begin(), items->end(), [&](const JSONValue& item) {
        return ledgerly::hasID(item.get_object(), itemID);
      });
      items->erase(kept, items->end());
    }
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(remove));
  co_return JSONMap{{"deleted", itemID}};
}

Task<JSONMap> toggleCheck(LedgerlyQueries queries, JSONMap arguments, Identity) {
  const auto itemID = json::stringOr(arguments, "itemId");
  auto toggle = [itemID](JSONMap& document) {
    auto* item = ledgerly::findItem(document, itemID);
    if (item == nullptr) return false;
    const bool checked = !json::booleanOr(*item, "checked", false);
    (*item)["checked"] = checked;
    return checked;
  };
  const bool checked =
      co_await queries.mutateDocument(json::stringOr(arguments, "sheetId"), std::move(toggle));
  co_return JSONMap{{"itemId", itemID}, {"checked", checked}};
}

constexpr ToolProperty newSheet[] = {{"title", "string"}, {"sheetId", "string"}};

constexpr ToolProperty newItem[] = {
    {"sheetId", "string"},
    {"categoryId", "string"},
    {"categoryName", "string"},
    {"itemId", "string"},
    {"name", "string"},
    {"qty", "number"},
    {"notes", "string", "The item's note: plain text or HTML, shown under the item in every view."},
    {"links", "array",
     "Reference links: the page the item came from, or a Google search address for it when there is none. "
     "Never an invented address.",
     &ledgerlyLink},
};
constexpr std::string_view newItemRequired[] = {"sheetId", "name"};

constexpr ToolProperty itemPatch[] = {{"sheetId", "string"}, {"itemId", "string"}, {"patch", "object"}};
constexpr std::string_view itemPatchRequired[] = {"sheetId", "itemId", "patch"};

constexpr ToolProperty oneItem[] = {{"sheetId", "string"}, {"itemId", "string"}};
constexpr std::string_view oneItemRequired[] = {"sheetId", "itemId"};

constexpr LedgerlyTool table[] = {
    {"ledgerly_create_sheet", "Create a new empty sheet.", {newSheet, {}}, createSheet},
    {"ledgerly_add_item",
     "Append ONE item to a category; creates the category if categoryName is given. Carries id/name/qty "
     "and a note: put what the person should know about the item in `notes` (plain text, or the note's "
     "HTML) — a source, a spec, a reason, a link. Tags, vendor and location are not accepted here; use "
     "ledgerly_import_sheet to load a whole list in one call with every field, or ledgerly_update_item to "
     "patch this item later.",
     {newItem, newItemRequired},
     addItem},
    {"ledgerly_update_item",
     "Shallow-merge a patch into one item by id. The patch takes any item field: name, qty, price, checked, "
     "tags, vendor, location, `notes` (plain text or HTML), and `links` ([{url, title}], added to the item's "
     "reference links; a real address, or a Google search address for it).",
     {itemPatch, itemPatchRequired},
     updateItem},
    {"ledgerly_delete_item", "Remove one item by id.", {oneItem, oneItemRequired}, deleteItem},
    {"ledgerly_toggle_check",
     "Flip the `checked` boolean on one item.",
     {oneItem, oneItemRequired},
     toggleCheck},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyAuthoringTools::tools(const LedgerlyQueries& queries) {
  return toolDefinitions(table, queries);
}

}  // namespace vorlane
