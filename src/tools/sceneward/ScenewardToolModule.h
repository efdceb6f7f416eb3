#pragma once

#include "ai/LocalAIRegistry.h"
#include "mcp/ToolDefinition.h"
#include "mcp/ToolRegistry.h"
#include "store/ScenewardQueries.h"

#include <memory>
#include <string>
#include <vector>

namespace vorlane {

/// The scene tools, namespace "sceneward": those that read, those that write scenes and
/// shapes, those that write cues, the placeholders, and those about the work itself.
class ScenewardToolModule : public ToolModule {
 public:
  /// `registry` is the one that this module is registered in, and is not kept alive by
  /// it. Without `providers` no model reads a diagram.
  ScenewardToolModule(ScenewardQueries queries, std::weak_ptr<const ToolRegistry> registry,
                      std::shared_ptr<LocalAIRegistry> providers = nullptr);

  std::string toolNamespace() const override { return "sceneward"; }
  std::vector<ToolDefinition> tools() const override;

 private:
  ScenewardQueries queries_;
  std::weak_ptr<const ToolRegistry> registry_;
  std::shared_ptr<LocalAIRegistry> providers_;
};

}  // namespace vorlane
