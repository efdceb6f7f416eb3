#pragma once

#include "access/ProfileSyncer.h"
#include "base/JSON.h"
#include "base/paths/Paths.h"
#include "base/tasks/Runtime.h"
#include "base/tasks/TaskGroup.h"
#include "cloud/Deployment.h"
#include "mcp/MCPLifecycle.h"
#include "preferences/AgentPreferences.h"
#include "shell/AccountServices.h"
#include "shell/AppRecentsHolder.h"
#include "tools/ledgerly/LedgerlyWebClient.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorlane {

class AgentStore;
class ScenewardPushTriggers;
class StoreNotifications;

/// The composition of the agent: makes every service, in the order of the start,
/// and holds them until the process ends. Its operations run on the main executor.
class AppDelegate {
 public:
  struct Settings {
    Paths paths;
    Deployment deployment;
    std::uint16_t port = 17800;
    /// What the program was started for.
    std::vector<std::string> urls;
  };

  /// Makes what the start stands on; nothing is served yet. `runtime` and `main`
  /// have to outlive the object. Throws Failure when a place cannot be used.
  AppDelegate(Settings settings, Runtime& runtime, MainLoop& main);
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  /// The start, in its fixed order, then the URLs that the program was started
  /// for. Returns at once; services come up in tasks of their own. Whatever fails is
  /// logged, and the rest goes on.
  void applicationDidFinishLaunching();

  /// URLs that the system, or a second start, hands to the agent; each in its turn.
  void applicationOpen(const std::vector<std::string>& urls);

  /// What `vorlanectl status` shows of the running agent.
  JSONMap status() const;

 private:
  void openStore();
  void startServices();
  void startScenewardPusher();
  void startLedgerlyPusher();
  void startRecents();
  MCPLifecycle::Environment lifecycleEnvironment() const;
  std::optional<LedgerlyWebClient> ledgerlyWebClient() const;
  std::function<void(const std::shared_ptr<ToolRegistry>&)> moduleMaker() const;

  Settings settings_;
  Runtime& runtime_;
  MainLoop& main_;
  AccountServices account_;
  AgentPreferences preferences_;
  std::shared_ptr<StoreNotifications> storeNotifications_;
  std::shared_ptr<SyncJournal> journal_;
  /// Held by whoever pushes a sheet or reads the cloud's list of them.
  std::shared_ptr<AsyncMutex> sheetExchange_;
  AppRecentsHolder recents_;
  std::shared_ptr<AgentStore> store_;
  MCPLifecycle lifecycle_;
  ProfileSyncer syncer_;
  std::unique_ptr<ScenewardPushTriggers> scenewardPushTriggers_;
  std::unique_ptr<TaskGroup> ledgerlyPushTask_;
};

}  // namespace vorlane
