#include "tools/sceneward/ScenewardTool.h"

#include "tools/DocumentEdits.h"

#include <utility>

namespace vorlane::sceneward {
namespace {

DomainFailure unreadable(std::string_view key, const std::string& expected) {
  return failure(409, "the scene holds something under \"" + std::string(key) + "\" that is not " + expected +
                          "; nothing was changed");
}

}  // namespace

DomainFailure failure(long code, std::string description) {
  return {"sceneward", code, std::move(description)};
}

JSONArray& appendableArray(JSONMap& document, std::string_view key) {
  auto& value = document[key];
  // Anything else but a container reads as empty; a container may hold real work.
  if (!value.is_array() && !(value.is_object() && !value.get_object().empty())) value.emplace_array();
  if (auto* values = documents::appendableArray(document, key)) return *values;
  throw unreadable(key, "a list of objects");
}

JSONMap& writableObject(JSONMap& map, std::string_view key) {
  auto& value = map[key];
  if (!value.is_object() && !(value.is_array() && !value.get_array().empty())) value.emplace_object();
  if (!value.is_object()) throw unreadable(key, "an object");
  return value.get_object();
}

}  // namespace vorlane::sceneward
