#pragma once

#include "base/paths/Paths.h"
#include "base/tasks/AsyncMutex.h"
#include "base/tasks/Runtime.h"
#include "cloud/Deployment.h"
#include "preferences/AgentPreferences.h"
#include "shell/AccountServices.h"
#include "sync/SyncJournal.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vorlane {

class AgentStore;
class Poller;
class StoreNotifications;

struct AgentSettings {
  Paths paths;
  Deployment deployment;
  std::uint16_t port = 17800;
};

/// What the services of the agent share. Made once; it outlives them all.
struct AgentContext {
  AgentContext(AgentSettings settings, Platform platform, const Runtime& runtime, const MainLoop& main);

  const AgentSettings settings;
  /// The I/O executor, the concurrent one, and the one that the services live on.
  const Executor io, concurrent, main;
  /// The threads of the clients' connections.
  Poller& poller;
  AccountServices account;
  AgentPreferences preferences;
  const std::shared_ptr<StoreNotifications> storeNotifications;
  const std::shared_ptr<SyncJournal> journal;
  /// Held by whoever pushes a sheet or reads the cloud's list of them.
  const std::shared_ptr<AsyncMutex> sheetExchange;

  /// Whether there is a way to the network, by the one monitor, which the push triggers own. True
  /// until they have started. Callable from any thread once the services have started.
  std::function<bool()> isOnline = [] { return true; };
  /// Null until it is opened, and when it cannot be; then `storeFailure` says why. On the
  /// main executor.
  std::shared_ptr<AgentStore> store;
  std::string storeFailure;
};

}  // namespace vorlane
