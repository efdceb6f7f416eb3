#include "tools/sceneward/ScenewardSceneAuthoringTools.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "store/ScenewardID.h"
#include "store/ScenewardSceneSeed.h"
#include "store/SnapshotCodec.h"
#include "tools/DocumentEdits.h"
#include "tools/sceneward/ScenewardTool.h"
#include "tools/sceneward/ShapeOperations.h"

#include <algorithm>
#include <string>
#include <utility>

namespace vorlane {
namespace {

constexpr std::string_view sceneDetails[] = {"locationId", "sceneNumber", "intExt", "timeOfDay"};

Task<JSONMap> createScene(ScenewardQueries queries, JSONMap arguments, Identity identity) {
  const auto present = queries.now();
  const auto id = json::string(arguments, "projectId").value_or(newUppercaseUUID());
  ScenewardProjectRow row{.id = ScenewardID::canonical(id),
                          .ownerID = identity.userID,
                          .title = json::stringOr(arguments, "name", "Untitled scene"),
                          .data = {},
                          .createdAt = present,
                          .updatedAt = present};
  JSONMap scene{{"id", row.id}, {"name", row.title}}, meta;
  for (const auto key : sceneDetails) {
    const auto detail = json::nonEmptyString(arguments, key);
    if (detail) meta[key] = scene[key] = *detail;
  }
  row.data = SnapshotCodec::encode(ScenewardSceneSeed::document(std::move(meta)));
  co_await queries.save(std::move(row));
  co_return JSONMap{{"scene", std::move(scene)}, {"storage", "local-first"}, {"synced", false}};
}

Task<JSONMap> createShape(ScenewardQueries queries, JSONMap arguments, Identity) {
  auto shape = json::objectOrEmpty(arguments, "shape");
  ShapeOperations::ensureID(shape);
  auto append = [shape = std::move(shape)](JSONMap& document) mutable {
    ShapeOperations::place(shape, document);
    sceneward::appendableArray(document, "shapes").push_back(shape);
    return std::move(shape);
  };
  auto stored = co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(append));
  co_return JSONMap{{"shape", std::move(stored)}};
}

Task<JSONMap> updateShape(ScenewardQueries queries, JSONMap arguments, Identity) {
  auto merge = [shapeID = json::stringOr(arguments, "shapeId"),
                patch = json::objectOrEmpty(arguments, "patch")](JSONMap& document) -> JSONMap {
    auto* shape = documents::findByID(document, "shapes", shapeID);
    if (shape == nullptr) return {};
    ShapeOperations::merge(*shape, patch);
    return *shape;
  };
  auto merged = co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(merge));
  co_return JSONMap{{"shape", std::move(merged)}};
}

Task<JSONMap> deleteShape(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto shapeID = json::stringOr(arguments, "shapeId");
  auto remove = [shapeID](JSONMap& document) {
    auto* shapes = json::arrayOfObjects(document, "shapes");
    if (shapes == nullptr) return;
    auto* const kept = std::remove_if(shapes->begin(), shapes->end(), [&](const JSONValue& shape) {
      return documents::hasID(shape.get_object(), shapeID);
    });
    shapes->erase(kept, shapes->end());
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(remove));
  co_return JSONMap{{"deleted", shapeID}};
}

Task<JSONMap> bulkApply(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "sceneId");
  JSONArray operations;
  if (auto* given = json::arrayOfObjects(arguments, "ops")) operations = std::move(*given);
  auto apply = [operations = std::move(operations)](JSONMap& document) mutable {
    return ShapeOperations::apply(document, std::move(operations));
  };
  const auto applied = co_await queries.mutateDocument(id, std::move(apply));
  co_return JSONMap{{"sceneId", id}, {"applied", applied}};
}

constexpr std::string_view intExtChoices[] = {"INT.", "EXT.", "INT./EXT."};
constexpr ToolProperty newScene[] = {
    {"projectId", "string"},
    {"name", "string"},
    {"locationId", "string",
     "Groups scenes sharing a physical location; required for Location-scoped overrides to resolve."},
    {"sceneNumber", "string"},
    {.name = "intExt", .type = "string", .choices = intExtChoices},
    {"timeOfDay", "string"},
};
constexpr std::string_view newSceneRequired[] = {"projectId"};

constexpr ToolProperty newShape[] = {{"sceneId", "string"}, {"shape", "object"}};
constexpr std::string_view newShapeRequired[] = {"sceneId", "shape"};
constexpr ToolProperty shapePatch[] = {{"sceneId", "string"}, {"shapeId", "string"}, {"patch", "object"}};
constexpr std::string_view shapePatchRequired[] = {"sceneId", "shapeId", "patch"};
constexpr ToolProperty oneShape[] = {{"sceneId", "string"}, {"shapeId", "string"}};
constexpr std::string_view oneShapeRequired[] = {"sceneId", "shapeId"};
// Some clients refuse an array that does not say what it holds.
constexpr ToolProperty batch[] = {{"sceneId", "string"},
                                  {.name = "ops", .type = "array", .itemType = "object"}};
constexpr std::string_view batchRequired[] = {"sceneId", "ops"};

constexpr ScenewardTool table[] = {
    {"sceneward_create_scene",
     "Create a scene. Writes to the local agent store first, then uploads to the signed-in user's Sceneward "
     "account within about a minute — it will appear on the Sceneward web service under this same id. "
     "`synced: false` in the result means \"not uploaded YET\", not \"local only\". `locationId` groups "
     "scenes under one Location for the editor's scope cascade.",
     {newScene, newSceneRequired},
     createScene},
    {"sceneward_create_shape", "Append one shape to a scene.", {newShape, newShapeRequired}, createShape},
    {"sceneward_update_shape",
     "Shallow-merge a patch into one shape.",
     {shapePatch, shapePatchRequired},
     updateShape},
    {"sceneward_delete_shape", "Remove one shape from the scene.", {oneShape, oneShapeRequired}, deleteShape},
    {"sceneward_bulk_apply",
     "Apply a sequence of shape ops (create/update/delete).",
     {batch, batchRequired},
     bulkApply},
};

}  // namespace

std::vector<ToolDefinition> ScenewardSceneAuthoringTools::tools(const ScenewardQueries& queries) {
  return toolDefinitions(table, queries);
}

}  // namespace vorlane
