#include "tools/sceneward/ScenewardToolModule.h"

#include "tools/sceneward/ScenewardCueAuthoringTools.h"
#include "tools/sceneward/ScenewardMetaTools.h"
#include "tools/sceneward/ScenewardReadTools.h"
#include "tools/sceneward/ScenewardSceneAuthoringTools.h"
#include "tools/sceneward/ScenewardStubTools.h"

#include <iterator>
#include <utility>

namespace vorlane {

ScenewardToolModule::ScenewardToolModule(ScenewardQueries queries, std::weak_ptr<const ToolRegistry> registry,
                                         std::shared_ptr<LocalAIRegistry> providers)
    : queries_(std::move(queries)), registry_(std::move(registry)), providers_(std::move(providers)) {}

std::vector<ToolDefinition> ScenewardToolModule::tools() const {
  auto all = ScenewardReadTools::tools(queries_);
  const auto append = [&](std::vector<ToolDefinition> more) {
    all.insert(all.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
  };
  append(ScenewardSceneAuthoringTools::tools(queries_));
  append(ScenewardCueAuthoringTools::tools(queries_));
  append(ScenewardStubTools::tools(providers_));
  append(ScenewardMetaTools::tools(registry_));
  return all;
}

}  // namespace vorlane
