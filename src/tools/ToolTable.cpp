#include "tools/ToolTable.h"

namespace vorlane {
namespace {

void addLimits(JSONMap& shown, const ToolProperty& property) {
  if (!property.choices.empty()) shown["enum"] = JSONArray(property.choices.begin(), property.choices.end());
  if (property.minimum) shown["minimum"] = *property.minimum;
  if (property.maximum) shown["maximum"] = *property.maximum;
}

JSONMap propertySchema(const ToolProperty& property) {
  JSONMap shown = property.shape == nullptr ? JSONMap() : inputSchema(*property.shape);
  if (property.nullable) {
    shown["type"] = JSONArray{property.type, "null"};
  } else {
    shown["type"] = property.type;
  }
  if (!property.description.empty()) shown["description"] = property.description;
  if (property.items != nullptr) shown["items"] = inputSchema(*property.items);
  if (property.itemType.empty()) {
    addLimits(shown, property);
  } else {
    JSONMap element{{"type", property.itemType}};
    addLimits(element, property);
    shown["items"] = std::move(element);
  }
  if (property.minItems) shown["minItems"] = *property.minItems;
  if (property.maxItems) shown["maxItems"] = *property.maxItems;
  if (property.defaultValue) shown["default"] = *property.defaultValue;
  return shown;
}

}  // namespace

JSONMap inputSchema(const ToolSchema& schema) {
  JSONMap properties;
  for (const auto& property : schema.properties) properties[property.name] = propertySchema(property);
  JSONMap map{{"type", "object"}, {"properties", std::move(properties)}};
  if (!schema.required.empty()) map["required"] = JSONArray(schema.required.begin(), schema.required.end());
  return map;
}

}  // namespace vorlane
