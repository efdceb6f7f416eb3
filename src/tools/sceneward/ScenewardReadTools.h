#pragma once

#include "mcp/ToolDefinition.h"
#include "store/ScenewardQueries.h"

#include <vector>

namespace vorlane {

/// The tools that only read projects and scenes.
struct ScenewardReadTools {
  static std::vector<ToolDefinition> tools(const ScenewardQueries& queries);
};

}  // namespace vorlane
