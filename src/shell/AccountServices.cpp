#include "shell/AccountServices.h"

#include "access/KeychainBearerStorage.h"
#include "base/JSONArguments.h"
#include "base/ShellLog.h"
#include "platform/HostName.h"
#include "shell/PlacelessServices.h"

namespace vorlane {
namespace {

std::shared_ptr<SecretVault> vaultFor(const Paths& paths) {
  if (paths.container || paths.vault == VaultKind::secretService) return makeVault(paths);
  if (paths.vault == VaultKind::file) return makePlacelessVault();
  if (auto keyring = makeSecretServiceVault()) return keyring;
  return makePlacelessVault();
}

std::shared_ptr<UserDefaults> defaultsFor(const Paths& paths, const char* domain) {
  if (!paths.configHome) return makePlacelessDefaults();
  return makeUserDefaults(*paths.configHome, domain);
}

}  // namespace

AccountServices::AccountServices(const Paths& paths, const Deployment& deployment, Executor io,
                                 Executor concurrent) {
  if (containerForAppGroup(paths, appGroupIdentifier)) {
    signals = makeSignalCenter(paths.signals(), io, concurrent);
  } else {
    signals = makeLocalSignals();
  }
  vault = vaultFor(paths);
  urlSession = makeURLSession(deployment.caFile);
  const NetworkRunner network = [session = urlSession.get()](URLRequest request) {
    return session->send(std::move(request));
  };
  epoch = std::make_shared<AuthAccountEpoch>(*signals, notifications);
  tokens = std::make_shared<AuthTokenStore>(*vault, *signals, epoch, shellLog);
  session = std::make_shared<AuthSession>(
      concurrent, AuthRefreshClient{.domain = deployment.identityDomain, .transport = network},
      AuthSession::Storage::of(*tokens), [epoch = epoch] { return epoch->value(); }, notifications, now,
      shellLog);
  bearerStore = std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(vault));
  suiteDefaults = defaultsFor(paths, appGroupIdentifier);
  standardDefaults = defaultsFor(paths, standardDefaultsDomain);
  gate = std::make_shared<AccessGate>(suiteDefaults);
  account = std::make_shared<const Account>(Account{[session = session] { return session->currentUser(); },
                                                    [epoch = epoch] { return epoch->value(); }});
  const auto api = [&](const std::optional<std::string>& base, std::string_view key) {
    return cloud::API::at(
        base, key, network, [session = session] { return session->freshAccessToken(); }, account);
  };
  ledgerly = api(deployment.ledgerlyBase, "ledgerlyBase");
  sceneward = api(deployment.scenewardBase, "scenewardBase");
  device = std::make_shared<const DeviceIdentity>(vault, standardDefaults, hostName, shellLog);
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
