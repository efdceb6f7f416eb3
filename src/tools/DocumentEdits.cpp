#include "tools/DocumentEdits.h"

#include "base/JSONArguments.h"

namespace vorlane::documents {

bool hasID(const JSONMap& map, std::string_view id) {
  const auto* value = json::find(map, "id");
  return value != nullptr && value->is_string() && std::string_view(value->get_string()) == id;
}

JSONMap* findByID(JSONMap& map, std::string_view key, std::string_view id) {
  auto* values = json::arrayOfObjects(map, key);
  if (values == nullptr) return nullptr;
  for (auto& value : *values) {
    if (hasID(value.get_object(), id)) return &value.get_object();
  }
  return nullptr;
}

JSONArray* appendableArray(JSONMap& map, std::string_view key) {
  auto& value = map[key];
  if (value.is_null()) value.emplace_array();
  return json::arrayOfObjects(map, key);
}

}  // namespace vorlane::documents
