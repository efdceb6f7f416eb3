#pragma once

#include "base/Failure.h"
#include "base/Json.h"
#include "mcp/ToolDefinition.h"
#include "store/LedgerlyQueries.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// The shape of an object: its properties, and which of them must be there.
struct ToolSchema;

/// One property as the assistant is shown it.
struct ToolProperty {
  std::string_view name;
  std::string_view type;
  std::string_view description = {};
  /// The shape of the elements, for an array of objects.
  const ToolSchema* items = nullptr;
};

struct ToolSchema {
  std::span<const ToolProperty> properties;
  std::span<const std::string_view> required;
};

/// One line of a table of sheet tools.
struct LedgerlyTool {
  std::string_view name;
  std::string_view description;
  ToolSchema input;
  /// Does the work; gets copies of its own, so that it outlives the table's user.
  Task<JSONMap> (*run)(LedgerlyQueries queries, JSONMap arguments, Identity identity);
};

/// The tools of a table, in its order, over these sheets.
std::vector<ToolDefinition> toolDefinitions(std::span<const LedgerlyTool> table,
                                            const LedgerlyQueries& queries);

/// The failure of a sheet tool, in the domain "ledgerly".
DomainFailure ledgerlyFailure(long code, std::string description);
/// 404, "sheet ID not found".
DomainFailure sheetNotFound(const std::string& id);

}  // namespace vorlane
