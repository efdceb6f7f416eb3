#include "shell/services/MCPService.h"

#include "base/ShellLog.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "shell/Contributions.h"

#include <fmt/format.h>

#include <utility>

namespace vorlane {
void MCPService::contribute(Contributions& to) {
  to.status([this] { return onExecutor(context_.main, [this]() -> Task<JSONMap> { co_return status(); }); });
  // For the launcher, which waits for it while an assistant waits for an answer.
  to.command("reason", [this](JSONMap, Progress) {
    return onExecutor(context_.main, [this]() -> Task<JSONMap> {
      co_return lifecycle_.isServing() ? JSONMap() : JSONMap{{"reason", reasonNotToServe()}};
    });
  });
}

void MCPService::start() {
  spawn(context_.main, "service start", [this]() -> Task<> {
    co_await startLifecycle();
    co_await startSyncer();
  });
}

Task<> MCPService::stop() {
  syncer_.stop();
  lifecycle_.stop();
  co_return;
}

/// The account is looked up elsewhere first, since the keyring may take its time; the
/// lifecycle then finds it at hand.
Task<> MCPService::startLifecycle() {
  co_await onExecutor(context_.concurrent, [this]() -> Task<> {
    context_.account.gate->isEnabled(context_.account.account->currentUser());
    co_return;
  });
  lifecycle_.start(environment());
  started_ = true;
}

Task<> MCPService::startSyncer() {
  syncer_.stop();
  // Access that was granted to whoever was signed in before must not wait for
  // the first answer of the cloud to end.
  co_await onExecutor(context_.concurrent, [this]() -> Task<> {
    const auto& gate = context_.account.gate;
    try {
      if (!gate->isEnabled(context_.account.account->currentUser())) gate->set(false, std::nullopt);
    } catch (const std::exception& error) {
      shellLog("mcp: access could not be cleared: " + describe(error));
    }
    co_return;
  });
  syncer_.start({
      .gate = context_.account.gate,
      .api = context_.account.ledgerly,
      .path = context_.settings.deployment.profilePath,
      .log = shellLog,
      .refreshAction = [this]() -> Task<> {
        co_await onExecutor(context_.main, [this]() -> Task<> {
          lifecycle_.stop();
          co_await startLifecycle();
        });
      },
      .notifications = &context_.account.notifications,
      .executor = context_.concurrent,
  });
}

MCPLifecycle::Environment MCPService::environment() const {
  const auto& account = context_.account;
  const auto& paths = context_.settings.paths;
  return {
      .bearerStore = account.bearerStore,
      .gate = account.gate,
      .api = account.ledgerly,
      .log = shellLog,
      .registerModules =
          [this](const std::shared_ptr<ToolRegistry>& registry) {
            for (const auto& tools : all_.tools()) tools(registry);
          },
      .socketPath = paths.container ? std::optional(paths.assistantsSocket()) : std::nullopt,
      .routes = all_.routes(),
      .port = context_.settings.port,
      .io = context_.io,
      .concurrent = context_.concurrent,
      .poller = &context_.poller,
  };
}

JSONMap MCPService::status() const {
  JSONMap status{{"serving", lifecycle_.isServing()}};
  if (const auto port = lifecycle_.httpPort()) {
    status["endpoint"] = fmt::format("http://127.0.0.1:{}/rpc", *port);
  } else if (!lifecycle_.httpFailure().empty()) {
    status["endpointFailure"] = lifecycle_.httpFailure();
  }
  if (const auto socket = lifecycle_.socketPath()) status["socket"] = *socket;
  if (!lifecycle_.isServing()) status["reason"] = reasonNotToServe();
  return status;
}

std::string MCPService::reasonNotToServe() const {
  if (!context_.storeFailure.empty()) return "agent store open failed: " + context_.storeFailure;
  if (!started_) return "the agent is starting";
  return lifecycle_.userAtStart() ? "MCP access is off for this account" : "nobody is signed in";
}

}  // namespace vorlane
