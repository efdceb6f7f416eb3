#pragma once

#include "mcp/ToolDefinition.h"
#include "tools/ledgerly/LedgerlyAIListClient.h"

#include <vector>

namespace vorlane {

/// The tools that search and read the Archive of a person's generated lists, in the cloud.
struct LedgerlyAIListTools {
  static std::vector<ToolDefinition> tools(const LedgerlyAIListClient& client);
};

}  // namespace vorlane
