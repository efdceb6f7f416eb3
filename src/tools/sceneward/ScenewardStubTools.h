#pragma once

#include "ai/LocalAIRegistry.h"
#include "mcp/ToolDefinition.h"

#include <memory>
#include <vector>

namespace vorlane {

/// The tools that reserve names and schemas for later work, and answer so at once; and the
/// one among them that works: a diagram is read by a vision model.
struct ScenewardStubTools {
  /// Without `providers` a diagram is answered with "no_provider".
  static std::vector<ToolDefinition> tools(const std::shared_ptr<LocalAIRegistry>& providers);
};

}  // namespace vorlane
