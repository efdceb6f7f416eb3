#include "tools/ledgerly/LedgerlyImportTool.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/TaskContext.h"
#include "store/SnapshotCodec.h"
#include "tools/ledgerly/LedgerlyDocument.h"
#include "tools/ledgerly/LedgerlyImportPayload.h"
#include "tools/ledgerly/LedgerlyText.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <boost/asio/post.hpp>
#include <boost/json/monotonic_resource.hpp>

#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

struct Services {
  LedgerlyQueries queries;
  LedgerlyImportTool::Filing filing;
};

/// One call of the tool, its texts decoded. The payload is still in the arguments.
struct Import {
  std::optional<std::string> sheetID;
  std::optional<std::string> title;
  bool append = false;
  std::string request;
  JSONMap arguments;
};

std::optional<std::string> decodedString(const JSONMap& arguments, std::string_view key) {
  auto text = json::string(arguments, key);
  if (text) text = entityDecoded(*text);
  return text;
}

Import readImport(JSONMap arguments) {
  return {.sheetID = json::string(arguments, "sheetId"),
          .title = decodedString(arguments, "title"),
          .append = json::string(arguments, "mode") == "append",
          .request = decodedString(arguments, "request").value_or(""),
          .arguments = std::move(arguments)};
}

/// What the archive is told of the import, made before the categories go their way;
/// nothing when there is nobody to tell or nothing in it.
std::optional<JSONMap> archiveEntry(const Services& services, const Import& import,
                                    const LedgerlyImportPayload& payload, const std::string& name,
                                    const std::string& sheetReference) {
  if (!services.filing.recordList || payload.itemCount < 1) return std::nullopt;
  return JSONMap{{"name", name},
                 {"categories", payload.archiveForm()},
                 {"prompt", import.request},
                 {"sheetId", sheetReference}};
}

/// Starts the filing and goes on. It runs from a turn of its own and under no context:
/// a change of account must end the call, and not the filing of a list that is stored.
void fileInArchive(const Services& services, const Identity& identity, std::optional<JSONMap> entry) {
  if (!entry) return;
  const auto executor = executorWithContext(services.filing.executor, nullptr);
  boost::asio::post(executor, [executor, recordList = services.filing.recordList, ownerID = identity.userID,
                               entry = std::move(*entry)]() mutable {
    spawn(executor, "ledgerly: filing an imported list",
          [recordList = std::move(recordList), ownerID = std::move(ownerID),
           entry = std::move(entry)]() mutable -> Task<> {
            co_await recordList(std::move(ownerID), std::move(entry));
          });
  });
}

JSONMap resultOf(const std::string& sheetID, const std::string& name, const LedgerlyImportPayload& payload) {
  return {{"sheet", JSONMap{{"id", sheetID}, {"title", name}}},
          {"categoriesImported", payload.categories.size()},
          {"itemsImported", payload.itemCount}};
}

Task<JSONMap> importInto(Services services, LedgerlySheetRow row, Import import, Identity identity) {
  const auto name = import.title.value_or(row.title);
  auto payload = LedgerlyImportPayload::take(import.arguments, services.queries.now());
  std::optional<JSONMap> entry;  // a list that is appended is not filed
  if (!import.append) {
    const auto reference = row.remoteID ? std::to_string(*row.remoteID) : row.id;
    entry = archiveEntry(services, import, payload, name, reference);
  }
  const auto result = resultOf(row.id, name, payload);
  // One transaction for the list and the title: a call that is repeated because its answer
  // was lost must not meet a sheet that has the one without the other.
  auto land = [append = import.append, title = std::move(import.title),
               categories = std::move(payload.categories)](EditedRow& sheet) mutable {
    if (title) sheet.title = *title;
    auto& present = sheet.document["categories"];
    if (!append || !present.is_array()) {
      present = std::move(categories);
      return;
    }
    auto& list = ledgerly::appendableArray(sheet.document, "categories");
    // One by one: the array's own insert of a range does not take the parts into its memory.
    list.reserve(list.size() + categories.size());
    for (auto& category : categories) list.push_back(std::move(category));
  };
  co_await services.queries.mutateRow(row.id, std::move(land),
                                      import.append ? DocumentEdit::part : DocumentEdit::whole);
  fileInArchive(services, identity, std::move(entry));
  co_return result;
}

Task<JSONMap> importAsNew(Services services, Import import, Identity identity) {
  const auto present = services.queries.now();
  LedgerlySheetRow row{.id = import.sheetID.value_or(newUppercaseUUID()),
                       .ownerID = identity.userID,
                       .title = import.title.value_or("Untitled"),
                       .createdAt = present,
                       .updatedAt = present};
  std::optional<JSONMap> entry;
  JSONMap result;
  {
    // The document is written once and dropped: its parts need not be freed one by one.
    boost::json::monotonic_resource memory;
    auto payload = LedgerlyImportPayload::take(import.arguments, present, &memory);
    entry = archiveEntry(services, import, payload, row.title, row.id);
    result = resultOf(row.id, row.title, payload);
    JSONMap document(&memory);
    document.emplace("categories", std::move(payload.categories));
    row.data = SnapshotCodec::encode(document);
  }
  co_await services.queries.save(std::move(row));
  fileInArchive(services, identity, std::move(entry));
  co_return result;
}

// "append" without a sheet that is there makes a new one, like any other import.
Task<JSONMap> importSheet(Services services, JSONMap arguments, Identity identity) {
  auto import = readImport(std::move(arguments));
  if (import.sheetID && !import.sheetID->empty()) {
    auto row = services.queries.fetch(*import.sheetID);
    if (row) {
      co_return co_await importInto(std::move(services), std::move(*row), std::move(import),
                                    std::move(identity));
    }
  }
  co_return co_await importAsNew(std::move(services), std::move(import), std::move(identity));
}

constexpr ToolProperty itemProperties[] = {
    {"id", "string"},
    {"name", "string"},
    {"qty", "number"},
    {"price", "number"},
    {"checked", "boolean"},
    {"notes", "string"},
    {"links", "array", {}, &ledgerlyLink},
    {"tags", "array", {}, nullptr, "string"},
    {"vendor", "string"},
    {"location", "string"},
};
constexpr std::string_view nameRequired[] = {"name"};
constexpr ToolSchema item{itemProperties, nameRequired};

constexpr ToolProperty categoryProperties[] = {
    {"id", "string"}, {"name", "string"}, {"items", "array", {}, &item}};
constexpr ToolSchema category{categoryProperties, nameRequired};

constexpr std::string_view modes[] = {"replace", "append"};
constexpr ToolProperty importProperties[] = {
    {"sheetId", "string"},
    {"title", "string"},
    {.name = "mode", .type = "string", .choices = modes},
    {"request", "string",
     "The person's request in their own words, recorded with the list in their Archive."},
    {"categories", "array", {}, &category},
};
constexpr std::string_view importRequired[] = {"categories"};

constexpr ToolEntry<Services> table[] = {
    {"ledgerly_import_sheet",
     "Create or replace a whole sheet from one payload: {title, categories:[{name, items:[{name, qty, "
     "checked, notes, tags, vendor, location, price, links:[{url, title}]}]}]}. Prefer this over repeated "
     "ledgerly_add_item calls — it is one round trip and it keeps notes, tags, vendor, location and price, "
     "which add_item drops. Pass an existing sheetId with mode \"append\" to add categories to a sheet "
     "instead of replacing its contents. Asked to research and build a list (a shoot, a location, a rental "
     "package): search the web with your own tools, compose the categories and items yourself, carry what "
     "you learned in each item's `notes` (source, spec, price seen, why it is on the list) and put the page "
     "it came from in `links` (a real address you found; when there is none, a Google search address for "
     "the item so the person can look it up; never an invented one), then land it here in ONE call — a new "
     "sheet, or \"append\" onto the one the person named.",
     {importProperties, importRequired},
     importSheet},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyImportTool::tools(const LedgerlyQueries& queries, const Filing& filing) {
  return toolDefinitions(table, Services{queries, filing});
}

}  // namespace vorlane
