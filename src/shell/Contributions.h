#pragma once

#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "control/ControlCommands.h"
#include "mcp/ToolRegistry.h"
#include "net/HTTPRoutes.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// What the services offer, collected before any of them starts and only read afterwards.
class Contributions {
 public:
  /// Puts a service's tools into a registry; called anew at each start of the MCP server, on
  /// the main executor.
  using Tools = std::function<void(const std::shared_ptr<ToolRegistry>&)>;
  /// Gives keys of the status. Runs on the concurrent executor, where it may read the vault and the
  /// database; it hops to the main executor for the fields that live there.
  using Status = std::function<Task<JSONMap>()>;

  void tools(Tools tools) { tools_.push_back(std::move(tools)); }
  void status(Status status) { status_.push_back(std::move(status)); }
  void command(std::string name, ControlCommand command) {
    commands_.add(std::move(name), std::move(command));
  }
  void route(std::string prefix, std::shared_ptr<HTTPRoute> route) {
    routes_.add(std::move(prefix), std::move(route));
  }

  const std::vector<Tools>& tools() const { return tools_; }
  const std::vector<Status>& status() const { return status_; }
  const ControlCommands& commands() const { return commands_; }
  const HTTPRoutes& routes() const { return routes_; }

 private:
  std::vector<Tools> tools_;
  std::vector<Status> status_;
  ControlCommands commands_;
  HTTPRoutes routes_;
};

}  // namespace vorlane
