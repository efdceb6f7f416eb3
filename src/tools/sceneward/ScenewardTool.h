#pragma once

#include "base/Failure.h"
#include "base/JSON.h"
#include "store/ScenewardQueries.h"
#include "tools/ToolTable.h"

#include <string>
#include <string_view>

namespace vorlane {

/// One line of a table of tools over the scenes.
using ScenewardTool = ToolEntry<ScenewardQueries>;

namespace sceneward {

/// A failure of a scene tool, in the domain "sceneward".
DomainFailure failure(long code, std::string description);

/// The array of objects under `key` of a scene, to be appended to. Throws a failure (409)
/// that names the key when something else stands there, which would be lost.
JSONArray& appendableArray(JSONMap& document, std::string_view key);

/// The object under `key` to write in, made when there is none. Throws as above.
JSONMap& writableObject(JSONMap& map, std::string_view key);

}  // namespace sceneward
}  // namespace vorlane
