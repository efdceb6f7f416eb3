#pragma once

#include "base/Failure.h"
#include "store/LedgerlyQueries.h"
#include "tools/ToolTable.h"

#include <string>
#include <string_view>

namespace vorlane {

/// One line of a table of sheet tools.
using LedgerlyTool = ToolEntry<LedgerlyQueries>;

inline constexpr ToolProperty ledgerlyLinkProperties[] = {{"url", "string"}, {"title", "string"}};
inline constexpr std::string_view ledgerlyLinkRequired[] = {"url"};
/// A link of an item, wherever a tool takes one.
inline constexpr ToolSchema ledgerlyLink{ledgerlyLinkProperties, ledgerlyLinkRequired};

/// The failure of a sheet tool, in the domain "ledgerly".
DomainFailure ledgerlyFailure(long code, std::string description);
/// 404, "sheet ID not found".
DomainFailure sheetNotFound(const std::string& id);

}  // namespace vorlane
