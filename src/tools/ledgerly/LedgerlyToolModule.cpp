#include "tools/ledgerly/LedgerlyToolModule.h"

#include "tools/ledgerly/LedgerlyAIListTools.h"
#include "tools/ledgerly/LedgerlyAttachExisting.h"
#include "tools/ledgerly/LedgerlyAttachmentTools.h"
#include "tools/ledgerly/LedgerlyAuthoringTools.h"
#include "tools/ledgerly/LedgerlyCategoryTools.h"
#include "tools/ledgerly/LedgerlyReadTools.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vorlane {
namespace {

std::vector<LedgerlyToolSet> cloudSets(const std::optional<LedgerlyAttachmentClient>& attachments,
                                       const std::optional<LedgerlyAIListClient>& lists) {
  std::vector<LedgerlyToolSet> sets;
  if (attachments) {
    sets.emplace_back(
        [client = *attachments](const LedgerlyQueries&) { return LedgerlyAttachmentTools::tools(client); });
    sets.emplace_back([client = *attachments](const LedgerlyQueries& queries) {
      return LedgerlyAttachExisting::tools(queries, client);
    });
  }
  if (lists) {
    sets.emplace_back(
        [client = *lists](const LedgerlyQueries&) { return LedgerlyAIListTools::tools(client); });
  }
  return sets;
}

LedgerlyImportTool::Filing filingThrough(const std::optional<LedgerlyAIListClient>& lists,
                                         Executor executor) {
  if (!lists) return {};
  return {.recordList = [client = *lists](
                            std::string ownerID,
                            JSONMap list) { return client.record(std::move(ownerID), std::move(list)); },
          .executor = std::move(executor)};
}

}  // namespace

LedgerlyToolModule::LedgerlyToolModule(LedgerlyQueries queries, std::vector<LedgerlyToolSet> furtherSets,
                                       LedgerlyImportTool::Filing filing)
    : queries_(std::move(queries)),
      sets_{LedgerlyReadTools::tools, LedgerlyAuthoringTools::tools, LedgerlyCategoryTools::tools,
            [filing = std::move(filing)](const LedgerlyQueries& sheets) {
              return LedgerlyImportTool::tools(sheets, filing);
            }} {
  std::ranges::move(furtherSets, std::back_inserter(sets_));
}

LedgerlyToolModule::LedgerlyToolModule(LedgerlyQueries queries,
                                       std::optional<LedgerlyAttachmentClient> attachmentClient,
                                       std::optional<LedgerlyAIListClient> aiListClient, Executor filing)
    : LedgerlyToolModule(std::move(queries), cloudSets(attachmentClient, aiListClient),
                         filingThrough(aiListClient, std::move(filing))) {}

std::vector<ToolDefinition> LedgerlyToolModule::tools() const {
  std::vector<ToolDefinition> all;
  for (const auto& set : sets_) std::ranges::move(set(queries_), std::back_inserter(all));
  return all;
}

}  // namespace vorlane
