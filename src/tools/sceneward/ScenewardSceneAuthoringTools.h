#pragma once

#include "mcp/ToolDefinition.h"
#include "store/ScenewardQueries.h"

#include <vector>

namespace vorlane {

/// The tools that make scenes and edit their shapes. They change the local store and
/// return; what is in a shape is the editor's business.
struct ScenewardSceneAuthoringTools {
  static std::vector<ToolDefinition> tools(const ScenewardQueries& queries);
};

}  // namespace vorlane
