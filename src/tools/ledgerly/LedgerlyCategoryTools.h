#pragma once

#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"

#include <vector>

namespace vorlane {

/// The tools that rename and remove categories.
struct LedgerlyCategoryTools {
  static std::vector<ToolDefinition> tools(const LedgerlyQueries& queries);
};

}  // namespace vorlane
