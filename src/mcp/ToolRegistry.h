#pragma once

#include "mcp/ToolDefinition.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// The one table of what an assistant may call. Filled once at a start, then
/// read. Calls no handler and checks no rights. Callable from any thread.
class ToolRegistry {
 public:
  /// A definition as it was registered: shared and never changed, so that a
  /// call need not copy its schema.
  using Tool = std::shared_ptr<const ToolDefinition>;

  /// Takes the module and its tools. A namespace or a tool that is already there
  /// is replaced without notice, but the other tools of a replaced module stay.
  void registerModule(std::shared_ptr<const ToolModule> module);

  /// By the exact name; null when there is none.
  Tool tool(std::string_view name) const;
  /// Sorted by name.
  std::vector<Tool> allTools() const;
  /// Sorted.
  std::vector<std::string> namespaces() const;

 private:
  mutable std::mutex lock_;
  std::map<std::string, std::shared_ptr<const ToolModule>, std::less<>> modulesByNamespace_;
  std::map<std::string, Tool, std::less<>> toolsByName_;
};

}  // namespace vorlane
