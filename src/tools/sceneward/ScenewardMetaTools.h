#pragma once

#include "mcp/ToolDefinition.h"
#include "mcp/ToolRegistry.h"

#include <memory>
#include <vector>

namespace vorlane {

/// The tools about the work itself: which stage it is in, and which tools there are.
struct ScenewardMetaTools {
  /// `registry` is what holds these very tools, and is therefore not kept alive by them.
  static std::vector<ToolDefinition> tools(const std::weak_ptr<const ToolRegistry>& registry);
};

}  // namespace vorlane
