#pragma once

#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/paths/Paths.h"
#include "base/tasks/TaskGroup.h"
#include "cloud/API.h"
#include "preferences/AgentPreferences.h"
#include "shell/RecentsViewModel.h"
#include "store/LedgerlyQueries.h"
#include "store/ScenewardQueries.h"
#include "sync/RecentsSyncFetcher.h"
#include "sync/SyncJournal.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

class AgentStore;
class TemporaryDirectory;

/// What the list of recents stands on: a store of its own, apart from the services', the
/// list and what fetches it. When the store cannot be opened the list stands on one that
/// is thrown away, and nothing is fetched. Used on the main executor.
class AppRecentsHolder {
 public:
  struct Settings {
    Paths paths;
    cloud::API ledgerly;
    cloud::API sceneward;
    std::shared_ptr<SyncJournal> journal;
    /// See RecentsSyncFetcher.
    std::shared_ptr<AsyncMutex> sheetExchange;
    std::function<AgentPreferences::Snapshot()> preferences;
    std::shared_ptr<StoreNotifications> storeNotifications;
    NotificationCenter notifications;
    /// Makes a hydrator over these stores, see RecentsViewModel; null where nobody looks.
    std::function<RecentsViewModel::Hydrator(LedgerlyQueries, ScenewardQueries)> hydrator;
    Executor main;
    Executor concurrent;
    Log log;
  };

  /// Opens the store and subscribes the list to its changes. Throws when not even the
  /// store that is thrown away can be opened.
  explicit AppRecentsHolder(Settings settings);
  /// Ends the polling, without waiting for it.
  ~AppRecentsHolder();
  AppRecentsHolder(const AppRecentsHolder&) = delete;
  AppRecentsHolder& operator=(const AppRecentsHolder&) = delete;

  /// Null when the list stands on a store that is thrown away.
  const std::shared_ptr<AgentStore>& store() const { return store_; }
  const std::shared_ptr<RecentsViewModel>& viewModel() const { return viewModel_; }
  /// Null with the store.
  const std::shared_ptr<RecentsSyncFetcher>& fetcher() const { return fetcher_; }

  /// Starts to fetch, at once and every half hour, in place of any earlier polling.
  void startPolling();

 private:
  const Settings settings_;
  std::unique_ptr<TemporaryDirectory> folder_;  // goes after what lies in it
  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<RecentsViewModel> viewModel_;
  std::shared_ptr<RecentsSyncFetcher> fetcher_;
  std::unique_ptr<TaskGroup> fetchTask_;
};

}  // namespace vorlane
