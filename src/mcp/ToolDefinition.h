#pragma once

#include "access/AdminAccessRequirement.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorlane {

/// Who a call runs for.
struct Identity {
  /// The signed-in subject, or "anonymous".
  std::string userID;
  /// Reserved; no transport passes a person's own token through.
  std::optional<std::string> rawToken;
};

/// Does a tool's work on the concurrent executor. What it throws goes to the
/// assistant by its description.
using ToolHandler = std::function<Task<JSONMap>(JSONMap arguments, Identity identity)>;

/// Says what a call with these arguments asks for.
using AdminAccess = std::function<AdminAccessRequirement(const JSONMap& arguments)>;

/// One tool. Copies freely; its two functions are shared.
struct ToolDefinition {
  /// Unique and visible on the wire: the module's namespace, an underscore, and the tool's own words.
  std::string name;
  /// Shown to the assistant as it stands.
  std::string description;
  /// A JSON Schema object, shown as it stands and never enforced.
  JSONMap inputSchema;
  ToolHandler handler;
  /// Present when the tool is reserved for people with an admin grant.
  AdminAccess adminAccess;
  /// The tool changes nothing anywhere: when nobody is left to take the answer, it need not run.
  bool onlyReads = false;
};

/// A feature area: a namespace (without a trailing underscore) and its tools.
class ToolModule {
 public:
  virtual ~ToolModule() = default;
  virtual std::string toolNamespace() const = 0;
  /// Built anew on each call, in the module's own order.
  virtual std::vector<ToolDefinition> tools() const = 0;
};

}  // namespace vorlane
