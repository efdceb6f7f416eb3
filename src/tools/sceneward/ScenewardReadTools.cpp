#include "tools/sceneward/ScenewardReadTools.h"

#include "base/JSONArguments.h"
#include "store/SnapshotCodec.h"
#include "tools/DocumentEdits.h"
#include "tools/sceneward/ScenewardTool.h"

#include <optional>
#include <string>
#include <utility>

namespace vorlane {
namespace {

/// The parsed scene of that id, or nothing when there is no such row.
std::optional<JSONMap> findScene(const ScenewardQueries& queries, const std::string& id) {
  const auto row = queries.fetch(id);
  if (!row) return std::nullopt;
  return SnapshotCodec::decodeInBlock(row->data);
}

JSONMap sceneOf(const ScenewardQueries& queries, const std::string& id) {
  auto scene = findScene(queries, id);
  if (!scene) throw ScenewardQueries::sceneNotFound(id);
  return std::move(*scene);
}

/// Whether the string under `key` is `wanted`, when anything is wanted.
bool matches(const JSONMap& map, std::string_view key, const std::optional<std::string>& wanted) {
  return !wanted || json::string(map, key) == wanted;
}

/// The objects under `key` of the scene that pass `keep`, as "count" and, under `name`,
/// themselves. A scene that is not there has none, and is no error.
template <class Keep>
JSONMap filtered(const ScenewardQueries& queries, const std::string& id, std::string_view key,
                 std::string_view name, const Keep& keep) {
  auto scene = findScene(queries, id);
  if (!scene) return {{name, JSONArray()}};
  JSONArray found(scene->storage());
  if (auto* values = json::arrayOfObjects(*scene, key)) {
    for (auto& value : *values) {
      if (keep(value.get_object())) found.push_back(std::move(value));
    }
  }
  JSONMap answer(scene->storage());
  answer.emplace("sceneId", id);
  answer.emplace("count", found.size());
  answer.emplace(name, std::move(found));
  return answer;
}

Task<JSONMap> listProjects(ScenewardQueries queries, JSONMap arguments, Identity identity) {
  const auto limit = json::integer(arguments, "limit");
  JSONArray projects;
  for (const auto& project : queries.listMeta(identity.userID, limit)) {
    projects.push_back(JSONMap{{"id", project.id},
                               {"title", project.title},
                               {"updatedAt", iso8601Text(project.updatedAt)},
                               {"synced", project.syncedAt.has_value()}});
  }
  const auto count = projects.size();
  co_return JSONMap{{"projects", std::move(projects)},
                    {"count", count},
                    {"limit", limit ? JSONValue(*limit) : JSONValue()}};
}

Task<JSONMap> listScenes(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "projectId");
  const auto row = queries.fetch(id);
  if (!row) throw sceneward::failure(404, "project " + id + " not found");
  JSONMap scene{{"id", row->id}, {"name", row->title}};
  for (const auto& [key, value] : json::objectOrEmpty(SnapshotCodec::decode(row->data), "meta")) {
    scene[key] = value;
  }
  co_return JSONMap{{"scenes", JSONArray{std::move(scene)}}};
}

Task<JSONMap> getScene(ScenewardQueries queries, JSONMap arguments, Identity) {
  co_return sceneOf(queries, json::stringOr(arguments, "sceneId"));
}

Task<JSONMap> listShapes(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto kind = json::string(arguments, "kind"), layerID = json::string(arguments, "layerId");
  co_return filtered(queries, json::stringOr(arguments, "sceneId"), "shapes", "shapes",
                     [&](const JSONMap& shape) {
                       return matches(shape, "kind", kind) && matches(shape, "layerId", layerID);
                     });
}

Task<JSONMap> getShape(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto id = json::stringOr(arguments, "sceneId"), shapeID = json::stringOr(arguments, "shapeId");
  auto scene = sceneOf(queries, id);
  auto* shape = documents::findByID(scene, "shapes", shapeID);
  if (shape == nullptr) throw sceneward::failure(404, "shape " + shapeID + " not found in " + id);
  co_return JSONMap{{"shape", std::move(*shape)}};
}

Task<JSONMap> getCue(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto cueID = json::stringOr(arguments, "cueId");
  const auto scene = sceneOf(queries, json::stringOr(arguments, "sceneId"));
  const auto* cues = json::object(scene, "cues");
  const auto* body = cues == nullptr ? nullptr : json::object(*cues, cueID);
  if (body == nullptr) throw sceneward::failure(404, "cue " + cueID + " not found");
  co_return JSONMap{{"cueId", cueID}, {"cue", *body}};
}

Task<JSONMap> listShots(ScenewardQueries queries, JSONMap arguments, Identity) {
  co_return filtered(queries, json::stringOr(arguments, "sceneId"), "folders", "shots",
                     [](const JSONMap& folder) { return matches(folder, "kind", "shot"); });
}

Task<JSONMap> listCues(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto shotID = json::string(arguments, "shotId");
  co_return filtered(queries, json::stringOr(arguments, "sceneId"), "folders", "cues",
                     [&](const JSONMap& folder) {
                       return matches(folder, "kind", "cue") && matches(folder, "parentFolderId", shotID);
                     });
}

constexpr ToolProperty projectLimit[] = {{.name = "limit",
                                          .type = "integer",
                                          .description = "Max projects to return (newest first).",
                                          .minimum = 1,
                                          .defaultValue = 50}};
constexpr ToolProperty project[] = {{"projectId", "string"}};
constexpr std::string_view projectRequired[] = {"projectId"};
constexpr ToolProperty scene[] = {{"sceneId", "string"}};
constexpr std::string_view sceneRequired[] = {"sceneId"};
constexpr ToolProperty shapeFilter[] = {{"sceneId", "string"}, {"kind", "string"}, {"layerId", "string"}};
constexpr ToolProperty shape[] = {{"sceneId", "string"}, {"shapeId", "string"}};
constexpr std::string_view shapeRequired[] = {"sceneId", "shapeId"};
constexpr ToolProperty cue[] = {{"sceneId", "string"}, {"cueId", "string"}};
constexpr std::string_view cueRequired[] = {"sceneId", "cueId"};
constexpr ToolProperty cueFilter[] = {{"sceneId", "string"}, {"shotId", "string"}};

constexpr ScenewardTool table[] = {
    {"sceneward_list_projects",
     "List Sceneward projects in the LOCAL agent store for the signed-in user. This is the on-device cache, "
     "not a live query of the Sceneward web service: it includes projects only ever authored locally, and "
     "each entry reports whether it has been synced. Newest first; pass `limit` to cap the result.",
     {projectLimit, {}},
     listProjects},
    {"sceneward_list_scenes",
     "List scenes inside a Sceneward project. v1: one scene per project row.",
     {project, projectRequired},
     listScenes},
    {"sceneward_get_scene",
     "Fetch a full scene snapshot (shapes, folders, cues).",
     {scene, sceneRequired},
     getScene},
    {"sceneward_list_shapes",
     "List shapes in a scene; optional kind / layerId filters (AND).",
     {shapeFilter, sceneRequired},
     listShapes},
    {"sceneward_get_shape", "Fetch one shape by id from a scene.", {shape, shapeRequired}, getShape},
    {"sceneward_get_cue", "Fetch one cue's keyframe body by cueId.", {cue, cueRequired}, getCue},
    {"sceneward_list_shots", "List shot folders in a scene.", {scene, sceneRequired}, listShots},
    {"sceneward_list_cues", "List cues; optional shotId filter.", {cueFilter, sceneRequired}, listCues},
};

}  // namespace

std::vector<ToolDefinition> ScenewardReadTools::tools(const ScenewardQueries& queries) {
  return onlyReading(toolDefinitions(table, queries));
}

}  // namespace vorlane
