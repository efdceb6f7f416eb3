#include "mcp/ToolRegistry.h"

#include <utility>

namespace vorlane {

void ToolRegistry::registerModule(std::shared_ptr<const ToolModule> module) {
  // Asked before the lock is taken: a module may look into this registry.
  auto name = module->toolNamespace();
  auto tools = module->tools();
  const std::scoped_lock hold(lock_);
  modulesByNamespace_.insert_or_assign(std::move(name), std::move(module));
  for (auto& tool : tools) {
    auto shared = std::make_shared<const ToolDefinition>(std::move(tool));
    toolsByName_.insert_or_assign(shared->name, std::move(shared));
  }
}

ToolRegistry::Tool ToolRegistry::tool(std::string_view name) const {
  const std::scoped_lock hold(lock_);
  const auto found = toolsByName_.find(name);
  return found == toolsByName_.end() ? nullptr : found->second;
}

std::vector<ToolRegistry::Tool> ToolRegistry::allTools() const {
  const std::scoped_lock hold(lock_);
  std::vector<Tool> tools;
  tools.reserve(toolsByName_.size());
  for (const auto& [name, tool] : toolsByName_) tools.push_back(tool);
  return tools;
}

std::vector<std::string> ToolRegistry::namespaces() const {
  const std::scoped_lock hold(lock_);
  std::vector<std::string> names;
  names.reserve(modulesByNamespace_.size());
  for (const auto& [name, module] : modulesByNamespace_) names.push_back(name);
  return names;
}

}  // namespace vorlane
