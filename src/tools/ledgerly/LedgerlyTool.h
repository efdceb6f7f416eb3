#pragma once

#include "base/Failure.h"
#include "store/LedgerlyQueries.h"
#include "tools/ToolTable.h"

#include <string>

namespace vorlane {

/// One line of a table of sheet tools.
using LedgerlyTool = ToolEntry<LedgerlyQueries>;

/// The failure of a sheet tool, in the domain "ledgerly".
DomainFailure ledgerlyFailure(long code, std::string description);
/// 404, "sheet ID not found".
DomainFailure sheetNotFound(const std::string& id);

}  // namespace vorlane
