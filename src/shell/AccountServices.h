#pragma once

#include "access/AccessGate.h"
#include "access/AgentBearerStore.h"
#include "auth/AuthAccountEpoch.h"
#include "auth/AuthSession.h"
#include "auth/AuthTokenStore.h"
#include "auth/DeviceIdentity.h"
#include "base/JSON.h"
#include "base/NotificationCenter.h"
#include "base/paths/Paths.h"
#include "cloud/API.h"
#include "cloud/Deployment.h"
#include "platform/Platform.h"

#include <functional>
#include <memory>

namespace vorlane {

/// Everything that has to do with who is signed in, wired once for a process: the
/// agent and vorlanectl stand on the same. The members are made in this order and
/// destroyed in the reverse one. Constructing throws Failure when a place that is
/// there cannot be used.
struct AccountServices {
  AccountServices(const Paths& paths, const Deployment& deployment, Executor io, Executor concurrent);
  AccountServices(const AccountServices&) = delete;
  AccountServices& operator=(const AccountServices&) = delete;

  NotificationCenter notifications;
  /// Between processes; within this one alone when there is no container.
  std::shared_ptr<SignalCenter> signals;
  std::shared_ptr<SecretVault> vault;
  std::unique_ptr<URLSession> urlSession;
  std::shared_ptr<AuthAccountEpoch> epoch;
  std::shared_ptr<AuthTokenStore> tokens;
  std::shared_ptr<AuthSession> session;
  std::shared_ptr<AgentBearerStore> bearerStore;
  /// The domain that the suite shares, and the agent's own.
  std::shared_ptr<UserDefaults> suiteDefaults;
  std::shared_ptr<UserDefaults> standardDefaults;
  std::shared_ptr<AccessGate> gate;
  /// Whom the cloud takes this computer for.
  std::shared_ptr<const DeviceIdentity> device;

  /// Who is signed in; what marks are taken of.
  std::shared_ptr<const Account> account;
  /// The suite's two web APIs, with the person's own access.
  cloud::API ledgerly, sceneward;

  /// Who is signed in, as an assistant is shown it: "sub", "email" and "name" of the id
  /// token, each empty where it says nothing, and whether "mcp_access" is on.
  std::function<JSONMap()> profile() const;
};

}  // namespace vorlane
