#pragma once

#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"

#include <vector>

namespace vorlane {

/// The tools that only read sheets.
struct LedgerlyReadTools {
  static std::vector<ToolDefinition> tools(const LedgerlyQueries& queries);
};

}  // namespace vorlane
