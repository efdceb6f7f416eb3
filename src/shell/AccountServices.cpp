#include "shell/AccountServices.h"

#include "access/KeychainBearerStorage.h"
#include "base/JSONArguments.h"
#include "base/ShellLog.h"

#include <utility>

namespace vorlane {

AccountServices::AccountServices(Platform services, const Deployment& deployment, const Executor& concurrent)
    : platform(std::move(services)),
      epoch(std::make_shared<AuthAccountEpoch>(*platform.signals, notifications)),
      tokens(std::make_shared<AuthTokenStore>(*platform.vault, *platform.signals, epoch, shellLog)) {
  const NetworkRunner network = [transfers = platform.urlSession](URLRequest request) {
    return transfers->send(std::move(request));
  };
  session = std::make_shared<AuthSession>(
      concurrent, AuthRefreshClient{.domain = deployment.identityDomain, .transport = network},
      AuthSession::Storage::of(*tokens), [epoch = epoch] { return epoch->value(); }, notifications, now,
      shellLog);
  bearerStore = std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(platform.vault));
  gate = std::make_shared<AccessGate>(platform.suiteDefaults);
  account = std::make_shared<const Account>(Account{[session = session] { return session->currentUser(); },
                                                    [epoch = epoch] { return epoch->value(); }});
  const auto api = [&](const std::optional<std::string>& base, std::string_view key) {
    return cloud::API::at(
        base, key, network, [session = session] { return session->freshAccessToken(); }, account);
  };
  ledgerly = api(deployment.ledgerlyBase, "ledgerlyBase");
  sceneward = api(deployment.scenewardBase, "scenewardBase");
  device = std::make_shared<const DeviceIdentity>(platform.vault, platform.standardDefaults,
                                                  platform.hostName, shellLog);
}

std::function<JSONMap()> AccountServices::profile() const {
  return [tokens = tokens, gate = gate] {
    const auto stored = tokens->load();
    const JSONMap none;
    const JSONMap& claims = stored ? stored->idClaims : none;
    JSONMap profile;
    for (const auto* claim : {"sub", "email", "name"}) profile[claim] = json::stringOr(claims, claim);
    profile["mcp_access"] = gate->isOn();
    return profile;
  };
}

}  // namespace vorlane
