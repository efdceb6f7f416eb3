#pragma once

#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"

#include <vector>

namespace vorlane {

/// The tools that make sheets and edit single items. They change the local store and
/// return; what they change is then dirty and goes to the cloud by itself.
struct LedgerlyAuthoringTools {
  static std::vector<ToolDefinition> tools(const LedgerlyQueries& queries);
};

}  // namespace vorlane
