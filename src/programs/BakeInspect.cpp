#include "programs/BakeInspect.h"

#include "renderkit/bundle/BundleDocuments.h"
#include "renderkit/bundle/JSONDocument.h"
#include "renderkit/shot/BundleSceneBuilder.h"
#include "renderkit/shot/LightPlacement.h"
#include "renderkit/shot/Shot.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <string_view>
#include <unordered_map>

namespace vorlane::bake {
namespace {

namespace json = boost::json;
using renderkit::BakeBundle;

/// Each record as it stands, with what the ranges come to.
json::array meshes(const BakeBundle& bundle) {
  auto table = renderkit::encode(bundle.meshTable);
  auto records = table.as_object().at("records").as_array();
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto& record = bundle.meshTable.records[i];
    auto& object = records[i].as_object();
    object["vertices"] = record.position.count / 3;
    object["triangles"] = (record.index ? record.index->count : record.vertexCount) / 3;
  }
  return records;
}

json::array tracks(const BakeBundle& bundle) {
  std::unordered_map<std::string_view, std::int64_t> moved;
  for (const auto& record : bundle.meshTable.records) {
    if (record.shapeId) ++moved[*record.shapeId];
  }
  json::array list;
  for (const auto& track : bundle.animation.tracks) {
    const auto found = moved.find(track.targetId);
    list.push_back({{"targetId", track.targetId},
                    {"samples", track.perFrame.size()},
                    {"meshes", found == moved.end() ? 0 : found->second}});
  }
  return list;
}

json::array cameras(const BakeBundle& bundle) {
  const auto* chosen = renderkit::chooseCamera(bundle.animation, std::nullopt);
  json::array list;
  for (const auto& camera : bundle.animation.cameras) {
    json::object object{{"cameraId", camera.cameraId},
                        {"slate", camera.slate},
                        {"isRef", camera.isRef},
                        {"samples", camera.perFrame.size()},
                        {"chosen", &camera == chosen}};
    if (!camera.perFrame.empty()) {
      object["firstPose"] = renderkit::encode(camera.perFrame.front().pose);
      object["fovDeg"] = camera.perFrame.front().fovDeg;
    }
    list.push_back(std::move(object));
  }
  return list;
}

/// The photometry, and where each practical light stands.
json::value lights(const BakeBundle& bundle, renderkit::Notices& notices) {
  auto document = renderkit::encode(bundle.photometry);
  auto& practicals = document.as_object().at("lights").as_array();
  for (std::size_t i = 0; i < practicals.size(); ++i) {
    const auto& light = bundle.photometry.lights[i];
    const auto place = renderkit::placeLight(light, bundle);
    auto& object = practicals[i].as_object();
    object["placed"] = place.has_value();
    if (!place) {
      notices.add(renderkit::unplacedLightNotice(light));
    } else if (place->mesh) {
      object["atMesh"] = bundle.meshTable.records[*place->mesh].id;
    } else {
      object["atTrack"] = place->track->targetId;
    }
  }
  return document;
}

const char* imageType(std::string_view bytes) {
  if (bytes.starts_with("\x89PNG\r\n\x1a\n")) return "png";
  if (bytes.starts_with("\xff\xd8\xff")) return "jpeg";
  if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) return "webp";
  return "unknown";
}

json::array textures(const BakeBundle& bundle) {
  json::array list;
  for (const auto& [key, file] : bundle.meshTable.textures) {
    const auto& bytes = bundle.textures.at(key);
    list.push_back({{"key", key},
                    {"file", file},
                    {"bytes", bytes.size()},
                    {"type", imageType(bytes.text())},
                    {"firstRow", "at v = 1"}});
  }
  return list;
}

}  // namespace

std::string inspect(const BakeBundle& bundle, renderkit::Notices& notices) {
  renderkit::BundleSceneBuilder::build(bundle, renderkit::BundleSceneBuilder::Vertices::checkOnly);
  return renderkit::printJSON(json::object{{"manifest", renderkit::encode(bundle.manifest)},
                                           {"meshes", meshes(bundle)},
                                           {"tracks", tracks(bundle)},
                                           {"cameras", cameras(bundle)},
                                           {"lights", lights(bundle, notices)},
                                           {"textures", textures(bundle)}});
}

}  // namespace vorlane::bake
