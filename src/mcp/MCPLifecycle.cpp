#include "mcp/MCPLifecycle.h"

#include "auth/AccountMark.h"
#include "base/Failure.h"
#include "mcp/MCPRequestContext.h"
#include "mcp/RPCRoute.h"
#include "mcp/UnixSocketTransport.h"
#include "net/HTTPTransport.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

namespace vorlane {
MCPLifecycle::MCPLifecycle() = default;

MCPLifecycle::~MCPLifecycle() {
  stop();
}

void MCPLifecycle::start(const Environment& environment) {
  stop();
  clock_ = environment.clock;
  userAtStart_ = environment.api.account->currentUser();
  const bool access = environment.gate->isEnabled(userAtStart_);
  if (!access) environment.log("mcp: gate denied — rpc surface off, render service still up");

  registry_ = std::make_shared<ToolRegistry>();
  try {
    environment.registerModules(registry_);
  } catch (const std::exception& error) {
    environment.log("mcp: tool modules failed: " + describe(error));
  }
  if (access) {
    server_ = makeServer(environment);
    startSocket(environment);
  }
  startHTTP(environment);
}

void MCPLifecycle::stop() {
  // First of all, so that nothing which is under way ends in success.
  if (running_) *running_ = false;
  if (uds_) uds_->stop();
  uds_ = nullptr;
  if (http_) http_->stop();
  http_ = nullptr;
  server_ = nullptr;
}

std::shared_ptr<MCPServer> MCPLifecycle::makeServer(const Environment& environment) {
  running_ = std::make_shared<std::atomic<bool>>(true);
  const auto account = environment.api.account;
  const auto authorizer = std::make_shared<const MCPRequestAuthorizer>(
      MCPRequestAuthorizer::Sources{environment.gate, environment.api, environment.clock});
  MCPServerRights rights;
  rights.identityForRequest = [account](const JSONRPCRequest&) {
    return Identity{account->currentUser().value_or("anonymous"), std::nullopt};
  };
  rights.authorize = [authorizer](std::optional<AdminAccessRequirement> requirement, Identity identity) {
    return authorizer->authorize(std::move(requirement), std::move(identity.userID));
  };
  rights.accountFence = [account, running = running_,
                         gate = environment.gate](const Identity& identity) -> AccountFence {
    return [running, gate, mark = AccountMark(account, identity.userID)] {
      return *running && mark.holds() && gate->isEnabled(mark.owner());
    };
  };
  return std::make_shared<MCPServer>(registry_, std::move(rights), environment.clock);
}

void MCPLifecycle::startSocket(const Environment& environment) {
  if (!environment.socketPath) return;
  try {
    uds_ = std::make_unique<UnixSocketTransport>(server_, *environment.socketPath, environment.io,
                                                 environment.concurrent, *environment.poller, reserve_);
    uds_->start();
    environment.log("mcp: UDS listening at " + uds_->path());
  } catch (const std::exception& error) {
    uds_ = nullptr;
    environment.log("mcp: UDS start failed: " + describe(error));
  }
}

void MCPLifecycle::startHTTP(const Environment& environment) {
  httpFailure_.clear();
  const auto listen = [&](std::uint16_t port) {
    auto routes = environment.routes;
    routes.add("/rpc", std::make_shared<RPCRoute>(server_, environment.bearerStore));
    auto http = std::make_shared<HTTPTransport>(
        std::move(routes), port, environment.io, *environment.poller,
        [concurrent = environment.concurrent](std::string name, TaskBody body) {
          MCPRequestContext::startCall(concurrent, std::move(name), std::move(body));
        },
        reserve_);
    http->start();
    http_ = std::move(http);
  };
  try {
    // Clients know the endpoint by its port, which a restart should not move.
    if (environment.port == 0 && chosenPort_ != 0) {
      try {
        listen(chosenPort_);
      } catch (const Failure&) {
        chosenPort_ = 0;
      }
    }
    if (!http_) listen(environment.port);
    if (environment.port == 0) chosenPort_ = http_->port();
    environment.log(fmt::format("mcp: HTTP listening on 127.0.0.1:{}", http_->port()));
  } catch (const std::exception& error) {
    httpFailure_ = describe(error);
    environment.log("mcp: HTTP start failed: " + httpFailure_);
  }
}

MCPStatusSnapshot MCPLifecycle::statusSnapshot() const {
  if (!server_) return {};
  std::size_t connections = 0;
  if (http_) connections += http_->activeConnections();
  if (uds_) connections += uds_->activeConnections();
  return server_->statusRecorder().snapshot(static_cast<std::int64_t>(connections), clock_());
}

std::optional<std::uint16_t> MCPLifecycle::httpPort() const {
  if (!http_) return std::nullopt;
  return http_->port();
}

std::optional<std::string> MCPLifecycle::socketPath() const {
  if (!uds_) return std::nullopt;
  return uds_->path();
}

}  // namespace vorlane
