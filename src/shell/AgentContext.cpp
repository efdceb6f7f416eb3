#include "shell/AgentContext.h"

#include "base/ShellLog.h"
#include "store/StoreNotifications.h"

#include <fmt/format.h>

#include <utility>

namespace vorlane {
namespace {

/// The network for requests to `base`; without one they have nowhere to go.
NetworkRunner networkTo(const std::optional<std::string>& base, std::string_view key,
                        const NetworkRunner& network) {
  if (base) return network;
  return [key](URLRequest) -> Task<URLResponse> {
    throw TransportFailure(0, fmt::format("the deployment names no \"{}\"", key));
    co_return URLResponse();
  };
}

}  // namespace

AgentContext::AgentContext(AgentSettings agent, Platform platform, const Runtime& runtime,
                           const MainLoop& mainLoop)
    : settings(std::move(agent)),
      io(runtime.io()),
      concurrent(runtime.concurrent()),
      main(mainLoop.executor()),
      account(std::move(platform), settings.deployment, concurrent),
      preferences(*account.platform.standardDefaults, shellLog),
      storeNotifications(std::make_shared<StoreNotifications>(account.platform.signals, main)),
      journal(std::make_shared<SyncJournal>()),
      sheetExchange(std::make_shared<AsyncMutex>()),
      ledgerlyNetwork(networkTo(settings.deployment.ledgerlyBase, "ledgerlyBase", account.network)),
      scenewardNetwork(networkTo(settings.deployment.scenewardBase, "scenewardBase", account.network)) {}

}  // namespace vorlane
