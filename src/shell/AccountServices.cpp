#include "shell/AccountServices.h"

#include "base/JsonArguments.h"
#include "base/ShellLog.h"
#include "mcp/KeychainBearerStorage.h"
#include "platform/HostName.h"
#include "shell/PlacelessServices.h"

namespace vorlane {
namespace {

std::shared_ptr<SecretVault> vaultFor(const Places& places) {
  if (places.container || places.vault == VaultKind::secretService) return makeVault(places);
  if (places.vault == VaultKind::file) return makePlacelessVault();
  if (auto keyring = makeSecretServiceVault()) return keyring;
  return makePlacelessVault();
}

std::shared_ptr<UserDefaults> defaultsFor(const Places& places, const char* domain) {
  if (!places.configHome) return makePlacelessDefaults();
  return makeUserDefaults(*places.configHome, domain);
}

}  // namespace

AccountServices::AccountServices(const Places& places, const Deployment& deployment, Executor io,
                                 Executor concurrent) {
  if (containerForAppGroup(places, appGroupIdentifier)) {
    signals = makeSignalCenter(places.signals(), io, concurrent);
  } else {
    signals = makeLocalSignals();
  }
  vault = vaultFor(places);
  urlSession = makeURLSession(deployment.caFile);
  network = [session = urlSession.get()](URLRequest request) { return session->send(std::move(request)); };
  epoch = std::make_shared<AuthAccountEpoch>(*signals, notifications);
  tokens = std::make_shared<AuthTokenStore>(*vault, *signals, epoch, shellLog);
  session = std::make_shared<AuthSession>(
      concurrent, AuthRefreshClient{.domain = deployment.identityDomain, .transport = network},
      AuthSession::Storage::of(*tokens), [epoch = epoch] { return epoch->value(); }, notifications, now,
      shellLog);
  bearerStore = std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(vault));
  suiteDefaults = defaultsFor(places, appGroupIdentifier);
  standardDefaults = defaultsFor(places, standardDefaultsDomain);
  gate = std::make_shared<AccessGate>(suiteDefaults);
  device = std::make_shared<const DeviceIdentity>(vault, standardDefaults, hostName, shellLog);
}

CurrentUser AccountServices::currentUser() const {
  return [session = session] { return session->currentUser(); };
}

BearerSource AccountServices::bearer() const {
  return [session = session] { return session->freshAccessToken(); };
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
