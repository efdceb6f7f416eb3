#include "tools/ledgerly/LedgerlyAIListTools.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "base/Text.h"
#include "mcp/MCPRequestContext.h"
#include "tools/ToolTable.h"
#include "tools/ledgerly/LedgerlyArguments.h"
#include "tools/ledgerly/LedgerlyText.h"
#include "tools/ledgerly/LedgerlyTool.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

/// No words ask for the most recent lists.
std::string searchWords(const JSONMap& arguments) {
  const auto* query = json::find(arguments, "query");
  if (query == nullptr) return {};
  if (!query->is_string()) throw ledgerlyFailure(400, "query must be text.");
  return trimmed(entityDecoded(query->get_string()));
}

Task<JSONMap> searchLists(LedgerlyAIListClient client, JSONMap arguments, Identity identity) {
  JSONMap body{{"query", searchWords(arguments)}};
  ledgerly::putWholeNumber(body, arguments, "limit");
  auto answer = co_await client.search(std::move(body), std::move(identity.userID));
  MCPRequestContext::checkCurrentAccount();
  co_return answer;
}

/// A number, or its digits as assistants like to quote them.
std::optional<std::int64_t> listID(const JSONMap& arguments) {
  if (const auto number = json::integer(arguments, "id")) return number;
  const auto text = ledgerly::plainText(arguments, "id");
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (!text || !std::ranges::all_of(*text, isDigit)) return std::nullopt;
  return decimalInteger(*text);
}

Task<JSONMap> getList(LedgerlyAIListClient client, JSONMap arguments, Identity identity) {
  const auto id = listID(arguments);
  if (!id) throw ledgerlyFailure(400, "id is required: the id ledgerly_search_ai_lists gave.");
  JSONMap body{{"id", *id}};
  ledgerly::putWholeNumber(body, arguments, "maxItems");
  auto answer = co_await client.get(std::move(body), std::move(identity.userID));
  MCPRequestContext::checkCurrentAccount();
  co_return answer;
}

constexpr ToolProperty searchProperties[] = {
    {"query", "string",
     "A few words from the list's name or request, e.g. \"night exterior\". Empty for the most recent "
     "lists."},
    {.name = "limit",
     .type = "integer",
     .description = "Most lists to return. Omit for the server's default.",
     .minimum = 1,
     .maximum = 10},
};
constexpr std::string_view searchRequired[] = {"query"};

constexpr ToolProperty getProperties[] = {
    {.name = "id", .type = "integer", .description = "The id ledgerly_search_ai_lists gave.", .minimum = 1},
    {.name = "maxItems",
     .type = "integer",
     .description = "Most items to return across the list. Omit for the server's default.",
     .minimum = 1,
     .maximum = 150},
};
constexpr std::string_view getRequired[] = {"id"};

constexpr ToolEntry<LedgerlyAIListClient> table[] = {
    {"ledgerly_search_ai_lists",
     "Search the lists this person generated before in Ledgerly (their AI List Generator Archive, including "
     "lists the assistant or this MCP made). Names, dates, item counts and top categories only. Call it "
     "when they refer to a list they generated before.",
     {searchProperties, searchRequired},
     searchLists},
    {"ledgerly_get_ai_list",
     "Read one previously generated list by id: categories and items with quantities and prices, notes cut "
     "short. Reading adds nothing to any sheet; use ledgerly_import_sheet to land it.",
     {getProperties, getRequired},
     getList},
};

}  // namespace

std::vector<ToolDefinition> LedgerlyAIListTools::tools(const LedgerlyAIListClient& client) {
  return toolDefinitions(table, client);
}

}  // namespace vorlane
