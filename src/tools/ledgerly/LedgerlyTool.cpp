#include "tools/ledgerly/LedgerlyTool.h"

#include <string>
#include <utility>

namespace vorlane {
namespace {

JSONMap schemaMap(const ToolSchema& schema) {
  JSONMap properties;
  for (const auto& property : schema.properties) {
    JSONMap shown{{"type", property.type}};
    if (!property.description.empty()) shown["description"] = property.description;
    if (property.items != nullptr) shown["items"] = schemaMap(*property.items);
    properties[property.name] = std::move(shown);
  }
  JSONMap map{{"type", "object"}, {"properties", std::move(properties)}};
  if (!schema.required.empty()) map["required"] = JSONArray(schema.required.begin(), schema.required.end());
  return map;
}

}  // namespace

std::vector<ToolDefinition> toolDefinitions(std::span<const LedgerlyTool> table,
                                            const LedgerlyQueries& queries) {
  std::vector<ToolDefinition> definitions;
  definitions.reserve(table.size());
  for (const auto& tool : table) {
    definitions.push_back({.name = std::string(tool.name),
                           .description = std::string(tool.description),
                           .inputSchema = schemaMap(tool.input),
                           .handler = [run = tool.run, queries](JSONMap arguments, Identity identity) {
                             return run(queries, std::move(arguments), std::move(identity));
                           }});
  }
  return definitions;
}

DomainFailure ledgerlyFailure(long code, std::string description) {
  return {"ledgerly", code, std::move(description)};
}

DomainFailure sheetNotFound(const std::string& id) {
  return ledgerlyFailure(404, "sheet " + id + " not found");
}

}  // namespace vorlane
