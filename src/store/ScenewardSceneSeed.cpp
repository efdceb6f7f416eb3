#include "store/ScenewardSceneSeed.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"

#include <algorithm>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace vorlane {
namespace {

struct LayerSeed {
  std::string_view name, type, color;
};

constexpr LayerSeed layerSeeds[] = {
    {"Lights", "lights", "#f07b2b"},       {"Cameras", "cameras", "#00448b"},
    {"Blocking", "blocking", "#e56ea9"},   {"Extras blocking", "extras-blocking", "#fbc196"},
    {"Location", "set-design", "#5b6261"}, {"Props", "props", "#8b6f4e"},
    {"Track", "track", "#9a999a"},         {"Staging areas", "staging", "#ae68aa"},
    {"Textures", "textures", "#94c83f"},   {"Annotations", "annotations", "#f0db4f"},
    {"Sketch", "sketch", "#aaaaaa"},
};

struct KindRule {
  std::string_view kind, layerType;
};

constexpr KindRule kindRules[] = {
    {"camera-rgn", "cameras"},
    {"track", "cameras"},
    {"curved-track", "cameras"},
    {"steadicam", "cameras"},
    {"handheld", "cameras"},
    {"movement-arrow", "cameras"},
    {"character", "blocking"},
    {"light", "lights"},
    {"flag", "lights"},
    {"grip", "lights"},
    {"wall", "set-design"},
    {"door", "set-design"},
    {"window", "set-design"},
    {"staging-area", "set-design"},
    {"building", "set-design"},
    {"road", "set-design"},
    {"intersection", "set-design"},
    {"stairs", "set-design"},
    {"region", "textures"},
    {"annotation-label", "annotations"},
};

constexpr std::int64_t defaultGapSeconds = 3;

JSONArray seedLayers(const JSONValue& folderID) {
  JSONArray layers;
  for (const auto& seed : layerSeeds) {
    layers.push_back(JSONMap{{"id", newUppercaseUUID()},
                             {"name", seed.name},
                             {"type", seed.type},
                             {"color", seed.color},
                             {"visible", true},
                             {"locked", false},
                             {"wireframe", false},
                             {"parentFolderId", folderID},
                             {"order", static_cast<std::int64_t>(layers.size())}});
  }
  return layers;
}

/// Sets the key unless it is there. True when it was not.
bool addMissing(JSONMap& map, std::string_view key, JSONValue value) {
  return map.emplace(key, std::move(value)).second;
}

bool holdsNothing(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  return value == nullptr || value->is_null() || (value->is_array() && value->get_array().empty());
}

bool repairLayers(JSONMap& document) {
  const auto* layers = json::arrayOfObjects(std::as_const(document), "layers");
  if (layers != nullptr && !layers->empty()) return false;
  auto seed = ScenewardSceneSeed::document({});
  if (holdsNothing(document, "folders")) document["folders"] = std::move(seed["folders"]);
  JSONValue folderID;
  if (const auto* folders = json::arrayOfObjects(std::as_const(document), "folders")) {
    const auto* id = json::find(folders->front().get_object(), "id");
    if (id != nullptr) folderID = *id;
  }
  document["layers"] = seedLayers(folderID);
  return true;
}

bool repairFolders(JSONMap& document) {
  auto* folders = json::arrayOfObjects(document, "folders");
  if (folders == nullptr) return false;
  bool changed = false;
  for (auto& folder : *folders) {
    auto& map = folder.get_object();
    changed |= addMissing(map, "visible", true);
    changed |= addMissing(map, "wireframe", false);
    changed |= addMissing(map, "expanded", true);
  }
  return changed;
}

bool repairShapes(JSONMap& document) {
  std::set<std::string> layerIDs;
  if (const auto* layers = json::arrayOfObjects(std::as_const(document), "layers")) {
    for (const auto& layer : *layers) {
      if (auto id = json::string(layer.get_object(), "id")) layerIDs.insert(std::move(*id));
    }
  }
  auto* shapes = json::arrayOfObjects(document, "shapes");
  if (layerIDs.empty() || shapes == nullptr) return false;
  bool changed = false;
  for (auto& value : *shapes) {
    auto& shape = value.get_object();
    const auto layerID = json::string(shape, "layerId");
    if (layerID && layerIDs.contains(*layerID)) continue;
    changed |= shape.erase("layerId") > 0;
    ScenewardSceneSeed::assignLayer(shape, document);
    changed |= shape.contains("layerId");
  }
  return changed;
}

}  // namespace

JSONMap ScenewardSceneSeed::document(JSONMap meta) {
  const JSONValue folderID(newUppercaseUUID());
  JSONMap folder{{"id", folderID}, {"name", "Shot 1A"}, {"kind", "shot"},     {"parentFolderId", nullptr},
                 {"order", 0},     {"visible", true},   {"wireframe", false}, {"expanded", true}};
  return {
      {"shapes", JSONArray()},  {"layers", seedLayers(folderID)}, {"folders", JSONArray{std::move(folder)}},
      {"cues", JSONMap()},      {"slots", JSONArray()},           {"defaultGapS", defaultGapSeconds},
      {"meta", std::move(meta)}};
}

std::string_view ScenewardSceneSeed::layerType(std::string_view kind) {
  const auto* const found = std::ranges::find(kindRules, kind, &KindRule::kind);
  return found == std::end(kindRules) ? "props" : found->layerType;
}

void ScenewardSceneSeed::assignLayer(JSONMap& shape, const JSONMap& document) {
  if (shape.contains("layerId")) return;
  const auto* layers = json::arrayOfObjects(document, "layers");
  if (layers == nullptr || layers->empty()) return;
  const auto wanted = layerType(json::stringOr(shape, "kind"));
  const auto ofType = std::ranges::find_if(*layers, [&](const JSONValue& layer) {
    const auto* type = json::find(layer.get_object(), "type");
    return type != nullptr && type->is_string() && std::string_view(type->get_string()) == wanted;
  });
  const auto& layer = ofType == layers->end() ? layers->front() : *ofType;
  if (const auto* id = json::find(layer.get_object(), "id")) shape["layerId"] = *id;
}

void ScenewardSceneSeed::applyBuildingDefaults(JSONMap& shape) {
  if (json::stringOr(shape, "kind") != "building" || !json::booleanOr(shape, "housePreset", false)) return;
  addMissing(shape, "hasGarage", false);
}

bool ScenewardSceneSeed::repair(JSONMap& document) {
  bool changed = repairLayers(document);
  changed |= repairFolders(document);
  changed |= addMissing(document, "cues", JSONMap());
  changed |= addMissing(document, "slots", JSONArray());
  changed |= addMissing(document, "defaultGapS", defaultGapSeconds);
  changed |= repairShapes(document);
  return changed;
}

}  // namespace vorlane
