#include "tools/ledgerly/LedgerlyAttachExisting.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "mcp/MCPRequestContext.h"
#include "store/SnapshotCodec.h"
#include "tools/ToolTable.h"
#include "tools/ledgerly/LedgerlyArguments.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

struct Services {
  LedgerlyQueries queries;
  LedgerlyAttachmentClient client;
};

constexpr std::size_t sourceLimit = 20;

constexpr std::string_view staleNote =
    "The files were copied on Ledgerly, but this Mac's copy of the sheet could not be refreshed, so it does "
    "not show them. Make further changes to this sheet on the web: an edit made here would upload the older "
    "copy over them.";

DomainFailure refusal(std::string text) {
  return ledgerlyFailure(400, std::move(text));
}

JSONMap newItemOf(const JSONMap& source, const std::string& sourceName) {
  const auto given = json::objectOrEmpty(source, "newItem");
  JSONMap item;
  for (const auto* key : {"category", "subcategory", "name"}) ledgerly::putDecodedText(item, given, key);
  if (!item.contains("category") || !item.contains("name"))
    throw refusal(sourceName + ": newItem needs a category and a name.");
  return item;
}

/// What is copied, and onto which item. An item that is named outweighs a new one.
JSONMap sourceOf(const JSONMap& given, std::size_t number) {
  const auto sourceName = "Source " + std::to_string(number);
  const auto ref = ledgerly::plainText(given, "ref");
  if (!ref) throw refusal(sourceName + " needs the ref ledgerly_find_attachments gave.");
  JSONMap source{{"ref", *ref}};
  ledgerly::putDecodedText(source, given, "name");
  ledgerly::putDecodedText(source, given, "itemId");
  if (source.contains("itemId")) return source;
  if (!given.contains("newItem")) throw refusal(sourceName + " needs an itemId or a newItem.");
  source["newItem"] = newItemOf(given, sourceName);
  return source;
}

JSONArray sourcesOf(const JSONMap& arguments) {
  const auto* given = json::arrayOfObjects(arguments, "sources");
  if (given == nullptr || given->empty()) throw refusal("Name at least one source to attach.");
  if (given->size() > sourceLimit) throw refusal("Attach at most 20 files in one call.");
  JSONArray sources;
  for (const auto& source : *given) sources.push_back(sourceOf(source.get_object(), sources.size() + 1));
  return sources;
}

/// A sheet of this machine and the caller's own. What another account left here is
/// neither to be judged by nor to be refreshed with this account's copy.
std::optional<LedgerlySheetRow> ownRow(const LedgerlyQueries& queries, const std::string& sheetID,
                                       const std::string& ownerID) {
  auto row = queries.fetchResolving(sheetID);
  if (row && row->ownerID != ownerID) row.reset();
  return row;
}

std::int64_t cloudNumber(const std::optional<LedgerlySheetRow>& row, const std::string& sheetID) {
  if (row && row->remoteID) return *row->remoteID;
  if (const auto number = decimalInteger(sheetID)) return *number;
  throw refusal("This sheet has not synced to Ledgerly yet. Try again in a minute.");
}

/// The document under "sheet", "data" of the answer in the form in which it is stored.
/// One without a list of categories would empty the sheet, here and then in the cloud.
std::optional<std::string> documentIn(const JSONMap& answer) {
  const auto* sheet = json::object(answer, "sheet");
  const auto* data = sheet == nullptr ? nullptr : json::find(*sheet, "data");
  if (data == nullptr) return std::nullopt;
  try {
    JSONMap parsed;
    if (data->is_string()) parsed = SnapshotCodec::decode(data->get_string());
    const auto& document = data->is_object() ? data->get_object() : parsed;
    if (json::array(document, "categories") == nullptr) return std::nullopt;
    return SnapshotCodec::encode(document);
  } catch (const DomainFailure&) {
    return std::nullopt;
  }
}

/// Gives the row the cloud's document. False when it could not, or when the person has
/// edited the sheet since the row was read; never throws.
Task<bool> refresh(LedgerlyQueries queries, LedgerlySheetRow row, std::optional<std::string> document) {
  if (!document) co_return false;
  try {
    co_return co_await queries.applyServerCopy(row.id, std::move(*document), row.updatedAt, queries.now());
  } catch (const std::exception&) {
    co_return false;
  }
}

Task<JSONMap> attachExisting(Services services, JSONMap arguments, Identity identity) {
  const auto sheetID = ledgerly::decodedText(arguments, "sheetId");
  if (!sheetID) throw refusal("sheetId is required.");
  auto sources = sourcesOf(arguments);
  const auto row = ownRow(services.queries, *sheetID, identity.userID);
  JSONMap body{{"sheetId", cloudNumber(row, *sheetID)}};
  if (row && row->isDirty())
    throw refusal("This sheet has changes that have not synced yet. Try again in a minute.");
  body["sources"] = std::move(sources);

  auto answer = co_await services.client.attach(std::move(body), identity.userID);

  auto document = documentIn(answer);
  answer["sheet"] = nullptr;
  answer["sheetId"] = *sheetID;
  if (row) {
    // Also when the account has changed by now: the files are copied, the answer and the row are both
    // of the account that asked, and a row left behind would overwrite them after its next edit.
    const bool refreshed = co_await refresh(services.queries, *row, std::move(document));
    if (!refreshed) answer["note"] = staleNote;
  }
  MCPRequestContext::checkCurrentAccount();
  co_return answer;
}

constexpr ToolProperty newItemProperties[] = {
    {"category", "string", "Category name, existing or new."},
    {"subcategory", "string", "A subcategory inside that category. Omit to use the category itself."},
    {"name", "string", "Item name, usually what the file is."},
};
constexpr std::string_view newItemRequired[] = {"category", "name"};
constexpr ToolSchema newItem{newItemProperties, newItemRequired};

constexpr ToolProperty sourceProperties[] = {
    {"ref", "string", "The ref exactly as ledgerly_find_attachments returned it."},
    {"name", "string", "The file name as the search listed it."},
    {"itemId", "string", "Id of the existing item it goes on (its exact name works when unique)."},
    {.name = "newItem", .type = "object", .shape = &newItem},
};
constexpr std::string_view sourceRequired[] = {"ref", "name"};
constexpr ToolSchema source{sourceProperties, sourceRequired};

constexpr ToolProperty attachProperties[] = {
    {"sheetId", "string", "The sheet id ledgerly_list_sheets gave."},
    {.name = "sources",
     .type = "array",
     .description = "One entry per attachment, with either itemId or newItem.",
     .items = &source,
     .minItems = 1,
     .maxItems = sourceLimit},
};
constexpr std::string_view attachRequired[] = {"sheetId", "sources"};

constexpr ToolEntry<Services> table[] = {
    {"ledgerly_attach_existing",
     "Copy files or links that already live on other items, found with ledgerly_find_attachments, onto "
     "items in one of the person's saved Ledgerly sheets: an existing item (itemId) or a new item (newItem). "
     "It copies, never moves; the original stays where it is. One call for all of them, at most 20. A copy "
     "from someone else's list keeps a record of the list and person it came from. Ask the person before "
     "copying from a community list they did not name. The sheet must already be on Ledgerly; this Mac's "
     "copy of it is refreshed afterwards.",
     {attachProperties, attachRequired},
     attachExisting},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyAttachExisting::tools(const LedgerlyQueries& queries,
                                                          const LedgerlyAttachmentClient& client) {
  return toolDefinitions(table, Services{queries, client});
}

}  // namespace vorlane
