#include "tools/sceneward/ScenewardCueAuthoringTools.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "tools/DocumentEdits.h"
#include "tools/sceneward/ScenewardTool.h"

#include <string>
#include <utility>

namespace vorlane {
namespace {

/// Copies the argument under `key` when it is a string.
void copyString(JSONMap& folder, const JSONMap& arguments, std::string_view key) {
  if (const auto text = json::string(arguments, key)) folder[key] = *text;
}

/// The scene's folders, to be appended to. What stands in the list stays, whatever it is;
/// anything but a list reads as an empty one.
JSONArray& folders(JSONMap& document) {
  auto& value = document["folders"];
  if (!value.is_array()) value.emplace_array();
  return value.get_array();
}

Task<JSONMap> createShot(ScenewardQueries queries, JSONMap arguments, Identity) {
  JSONMap folder{{"id", newUppercaseUUID()}, {"kind", "shot"}};
  copyString(folder, arguments, "name");
  const auto* parent = json::find(arguments, "parentFolderId");
  if (parent != nullptr && (parent->is_string() || parent->is_null())) folder["parentFolderId"] = *parent;
  copyString(folder, arguments, "color");
  auto append = [folder](JSONMap& document) { folders(document).push_back(folder); };
  co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(append));
  co_return JSONMap{{"shot", std::move(folder)}};
}

Task<JSONMap> createCue(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto cueID = json::string(arguments, "cueId").value_or(newUppercaseUUID());
  JSONMap folder{
      {"id", cueID}, {"kind", "cue"}, {"parentFolderId", json::stringOr(arguments, "parentFolderId")}};
  copyString(folder, arguments, "name");
  const auto* seconds = json::find(arguments, "atSeconds");
  if (seconds != nullptr && seconds->is_number()) folder["atSeconds"] = *seconds;
  copyString(folder, arguments, "color");
  auto append = [folder, cueID](JSONMap& document) {
    folders(document).push_back(folder);
    // The keyframes of an earlier cue of that id go.
    sceneward::writableObject(document, "cues")[cueID] = JSONMap();
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(append));
  co_return JSONMap{{"cue", std::move(folder)}};
}

Task<JSONMap> upsertKeyframe(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto cueID = json::stringOr(arguments, "cueId"), shapeID = json::stringOr(arguments, "shapeId");
  auto keyframe = json::objectOrEmpty(arguments, "keyframe");
  auto write = [cueID, shapeID, keyframe](JSONMap& document) {
    auto& cue = sceneward::writableObject(sceneward::writableObject(document, "cues"), cueID);
    cue[shapeID] = keyframe;
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(write));
  co_return JSONMap{{"cueId", cueID}, {"shapeId", shapeID}, {"keyframe", std::move(keyframe)}};
}

Task<JSONMap> retimeCue(ScenewardQueries queries, JSONMap arguments, Identity) {
  const auto cueID = json::stringOr(arguments, "cueId");
  const double seconds = json::number(arguments, "atSeconds").value_or(0);
  auto retime = [cueID, seconds](JSONMap& document) {
    if (auto* folder = documents::findByID(document, "folders", cueID)) (*folder)["atSeconds"] = seconds;
  };
  co_await queries.mutateDocument(json::stringOr(arguments, "sceneId"), std::move(retime));
  co_return JSONMap{{"cueId", cueID}, {"atSeconds", seconds}};
}

constexpr ToolProperty newShot[] = {{"sceneId", "string"},
                                    {"name", "string"},
                                    {.name = "parentFolderId", .type = "string", .nullable = true},
                                    {"color", "string"}};
constexpr std::string_view newShotRequired[] = {"sceneId"};
constexpr ToolProperty newCue[] = {{"sceneId", "string"}, {"parentFolderId", "string"},
                                   {"name", "string"},    {"atSeconds", "number"},
                                   {"color", "string"},   {"cueId", "string"}};
constexpr std::string_view newCueRequired[] = {"sceneId", "parentFolderId"};
constexpr ToolProperty oneKeyframe[] = {
    {"sceneId", "string"}, {"cueId", "string"}, {"shapeId", "string"}, {"keyframe", "object"}};
constexpr std::string_view oneKeyframeRequired[] = {"sceneId", "cueId", "shapeId", "keyframe"};
constexpr ToolProperty retiming[] = {{"sceneId", "string"}, {"cueId", "string"}, {"atSeconds", "number"}};
constexpr std::string_view retimingRequired[] = {"sceneId", "cueId", "atSeconds"};

constexpr ScenewardTool table[] = {
    {"sceneward_create_shot", "Create a shot folder (kind=shot).", {newShot, newShotRequired}, createShot},
    {"sceneward_create_cue",
     "Create a cue (kind=cue) parented to a shot.",
     {newCue, newCueRequired},
     createCue},
    {"sceneward_upsert_keyframe",
     "Write/replace one shape's keyframe at a cue.",
     {oneKeyframe, oneKeyframeRequired},
     upsertKeyframe},
    {"sceneward_retime_cue",
     "Move a cue along the timeline (atSeconds patch on the folder).",
     {retiming, retimingRequired},
     retimeCue},
};

}  // namespace

std::vector<ToolDefinition> ScenewardCueAuthoringTools::tools(const ScenewardQueries& queries) {
  return toolDefinitions(table, queries);
}

}  // namespace vorlane
