#pragma once

#include "mcp/ToolDefinition.h"
#include "store/ScenewardQueries.h"

#include <vector>

namespace vorlane {

/// The tools that write the timeline of a scene: shots and cues, which are folders, and the
/// keyframes of the shapes at each cue.
struct ScenewardCueAuthoringTools {
  static std::vector<ToolDefinition> tools(const ScenewardQueries& queries);
};

}  // namespace vorlane
