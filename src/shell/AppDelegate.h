#pragma once

#include "base/tasks/Runtime.h"
#include "shell/AgentContext.h"
#include "shell/Contributions.h"
#include "shell/Service.h"

#include <memory>
#include <string>
#include <vector>

namespace vorlane {

/// The composition of the agent: makes every service, in the order of the start,
/// and holds them until the process ends. Its operations run on the main executor.
class AppDelegate {
 public:
  /// Makes what the start stands on; nothing is served yet. `runtime` and `main`
  /// have to outlive the object. Throws Failure when a path cannot be used.
  AppDelegate(AgentSettings settings, Platform platform, const Runtime& runtime, const MainLoop& main);
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  /// The start, in its fixed order, then `urls`, which the program was started for. Returns
  /// at once; services come up in tasks of their own. Whatever fails is logged, and the
  /// rest goes on.
  void applicationDidFinishLaunching(std::vector<std::string> urls);

  /// URLs that the system, or a second start, hands to the agent; each in its turn.
  void applicationOpen(const std::vector<std::string>& urls);

  /// Stops the services, the last one first.
  Task<> stop();

  /// What the agent takes over its control socket.
  const ControlCommands& commands() const { return contributions_.commands(); }

  /// What `vorlanectl status` shows of the running agent. From any executor.
  Task<JSONMap> status();

 private:
  Task<> launch(std::vector<std::string> urls);
  Task<> openStore();
  void contribute();

  AgentContext context_;
  Contributions contributions_;
  /// In the order of the start.
  std::vector<std::unique_ptr<Service>> services_;
};

}  // namespace vorlane
