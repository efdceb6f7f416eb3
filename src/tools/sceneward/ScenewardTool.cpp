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
  if (auto* values = documents::appendableArray(document, key)) return *values;
  throw unreadable(key, "a list of objects");
}

JSONMap& writableObject(JSONMap& map, std::string_view key) {
  auto& value = map[key];
  // Some writers know but one empty container.
  const bool isEmpty = value.is_null() || (value.is_array() && value.get_array().empty());
  if (isEmpty) value.emplace_object();
  if (!value.is_object()) throw unreadable(key, "an object");
  return value.get_object();
}

}  // namespace vorlane::sceneward
