#include "tools/ledgerly/LedgerlyToolModule.h"

#include "tools/ledgerly/LedgerlyAuthoringTools.h"
#include "tools/ledgerly/LedgerlyCategoryTools.h"
#include "tools/ledgerly/LedgerlyReadTools.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vorlane {

LedgerlyToolModule::LedgerlyToolModule(LedgerlyQueries queries, std::vector<LedgerlyToolSet> furtherSets,
                                       LedgerlyImportTool::Filing filing)
    : queries_(std::move(queries)),
      sets_{LedgerlyReadTools::tools, LedgerlyAuthoringTools::tools, LedgerlyCategoryTools::tools,
            [filing = std::move(filing)](const LedgerlyQueries& sheets) {
              return LedgerlyImportTool::tools(sheets, filing);
            }} {
  std::ranges::move(furtherSets, std::back_inserter(sets_));
}

std::vector<ToolDefinition> LedgerlyToolModule::tools() const {
  std::vector<ToolDefinition> all;
  for (const auto& set : sets_) std::ranges::move(set(queries_), std::back_inserter(all));
  return all;
}

}  // namespace vorlane
