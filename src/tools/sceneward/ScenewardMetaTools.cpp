#include "tools/sceneward/ScenewardMetaTools.h"

#include "base/JSONArguments.h"
#include "tools/ToolTable.h"

#include <string>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

using Registry = std::weak_ptr<const ToolRegistry>;
using MetaTool = ToolEntry<Registry>;

Task<JSONMap> setWorkflowStage(Registry, JSONMap arguments, Identity) {
  co_return JSONMap{
      {"sceneId", json::stringOr(arguments, "sceneId")},
      {"stage", json::stringOr(arguments, "stage")},
      {"applied", true},
      {"message", "Stage recorded in MCP response; persistence column lands in a follow-up."},
  };
}

Task<JSONMap> describeCapabilities(Registry registry, JSONMap arguments, Identity) {
  const auto wanted = json::stringOr(arguments, "namespace", "all");
  JSONArray tools;
  if (const auto present = registry.lock()) {
    for (const auto& tool : present->allTools()) {
      const auto owner = tool->name.substr(0, tool->name.find('_'));
      if (wanted != "all" && wanted != owner) continue;
      tools.push_back(
          JSONMap{{"name", tool->name}, {"description", tool->description}, {"namespace", owner}});
    }
  }
  const auto count = tools.size();
  co_return JSONMap{{"count", count}, {"tools", std::move(tools)}};
}

constexpr std::string_view stages[] = {"Location", "Blocking", "Camera", "Lighting", "Export"};
constexpr ToolProperty stage[] = {{"sceneId", "string"},
                                  {.name = "stage", .type = "string", .choices = stages}};
constexpr std::string_view stageRequired[] = {"sceneId", "stage"};
constexpr std::string_view namespaces[] = {"sceneward", "ledgerly", "vorlane", "all"};
constexpr ToolProperty capabilities[] = {{.name = "namespace", .type = "string", .choices = namespaces}};

constexpr MetaTool table[] = {
    {"sceneward_set_workflow_stage",
     "Record the active Sceneward workflow stage. v1: recorded in response only; backing column TBD.",
     {stage, stageRequired},
     setWorkflowStage},
    {"sceneward_describe_capabilities",
     "Self-describe: every registered tool, its description, and its namespace.",
     {capabilities, {}},
     describeCapabilities},
};

}  // namespace

std::vector<ToolDefinition> ScenewardMetaTools::tools(const std::weak_ptr<const ToolRegistry>& registry) {
  return toolDefinitions(table, registry);
}

}  // namespace vorlane
