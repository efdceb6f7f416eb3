#pragma once

#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"

#include <functional>
#include <string>
#include <vector>

namespace vorlane {

/// Files a list, with the words that asked for it, in the cloud archive of the person of
/// that id, and of nobody else: the account may have changed before it runs. What it
/// throws is logged.
using RecordList = std::function<Task<>(std::string ownerID, JSONMap list)>;

/// The tool that lands a whole list in one call.
struct LedgerlyImportTool {
  /// How imported lists get into the archive; none do without a `recordList`.
  struct Filing {
    RecordList recordList;
    /// What it runs on: beside the call that imported the list, which does not wait for
    /// it, and without that call's context.
    Executor executor;
  };

  static std::vector<ToolDefinition> tools(const LedgerlyQueries& queries, const Filing& filing);
};

}  // namespace vorlane
