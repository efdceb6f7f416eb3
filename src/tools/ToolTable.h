#pragma once

#include "base/JSON.h"
#include "mcp/ToolDefinition.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {

/// The shape of an object: its properties, and which of them must be there.
struct ToolSchema;

/// One property as the assistant is shown it. What is left out is not shown.
struct ToolProperty {
  std::string_view name;
  std::string_view type;
  std::string_view description = {};
  /// The shape of the elements, for an array of objects.
  const ToolSchema* items = nullptr;
  /// The type of the elements, for an array of plain values.
  std::string_view itemType = {};
  /// The values to choose from. Where there is an `itemType`, these and the two bounds
  /// of a number are those of each element.
  std::span<const std::string_view> choices = {};
  /// Whether null may stand here as well.
  bool nullable = false;
  std::optional<std::int64_t> minimum = std::nullopt;
  std::optional<std::int64_t> defaultValue = std::nullopt;
  std::optional<std::int64_t> maximum = std::nullopt;
  /// How many elements an array has, at the least and at the most.
  std::optional<std::int64_t> minItems = std::nullopt;
  std::optional<std::int64_t> maxItems = std::nullopt;
  /// The shape of the value itself, for an object.
  const ToolSchema* shape = nullptr;
};

struct ToolSchema {
  std::span<const ToolProperty> properties;
  std::span<const std::string_view> required;
};

/// The JSON Schema of an object of this shape.
JSONMap inputSchema(const ToolSchema& schema);

/// One line of a table of tools, which all work on the same `Services`.
template <class Services>
struct ToolEntry {
  std::string_view name;
  std::string_view description;
  ToolSchema input;
  /// Does the work; gets copies of its own, so that it outlives the table's user.
  Task<JSONMap> (*run)(Services services, JSONMap arguments, Identity identity);
};

/// The tools of a table, in its order, over these services. `Services` is a value
/// that copies cheaply.
template <class Services>
std::vector<ToolDefinition> toolDefinitions(std::span<const ToolEntry<Services>> table,
                                            const Services& services) {
  std::vector<ToolDefinition> definitions;
  definitions.reserve(table.size());
  for (const auto& tool : table) {
    definitions.push_back({.name = std::string(tool.name),
                           .description = std::string(tool.description),
                           .inputSchema = inputSchema(tool.input),
                           .handler = [run = tool.run, services](JSONMap arguments, Identity identity) {
                             return run(services, std::move(arguments), std::move(identity));
                           }});
  }
  return definitions;
}

template <class Services, std::size_t count>
std::vector<ToolDefinition> toolDefinitions(const ToolEntry<Services> (&table)[count],
                                            const Services& services) {
  return toolDefinitions(std::span<const ToolEntry<Services>>(table), services);
}

/// Marks tools that change nothing.
inline std::vector<ToolDefinition> onlyReading(std::vector<ToolDefinition> tools) {
  for (auto& tool : tools) tool.onlyReads = true;
  return tools;
}

}  // namespace vorlane
