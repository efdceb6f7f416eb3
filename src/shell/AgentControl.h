#pragma once

#include "base/JSON.h"
#include "base/tasks/Runtime.h"
#include "control/ControlServer.h"

#include <memory>
#include <string>
#include <vector>

namespace vorlane {

class AppDelegate;

/// The requests that the agent's control socket takes, for vorlanectl and second
/// starts. Both sides of each stand in this one file.
JSONMap statusRequest();
JSONMap openRequest(const std::vector<std::string>& urls);
JSONMap showPanelRequest();

/// Sends a request to the running agent and gives its answer. Blocks, a few
/// seconds at most. Throws Failure when no agent answers, or with the agent's own
/// refusal.
JSONMap requestFromAgent(const std::string& socket, const JSONMap& request);

/// The socket for those requests; `delegate`, `runtime` and `main` have to outlive it.
std::shared_ptr<ControlServer> makeAgentControl(const std::string& socket, AppDelegate& delegate,
                                                Runtime& runtime, MainLoop& main);

}  // namespace vorlane
