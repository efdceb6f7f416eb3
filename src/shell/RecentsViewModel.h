#pragma once

#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/Event.h"
#include "base/tasks/Task.h"
#include "cloud/Account.h"
#include "preferences/AgentPreferences.h"
#include "shell/recents/RecentItem.h"
#include "store/RecentEntryRow.h"
#include "store/RecentsQueries.h"
#include "store/StoreNotifications.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorlane {

/// The list of recents as it is shown. Made as a shared_ptr; all of it belongs to the
/// main executor, but for the reading, which is done on `worker` so that a long list
/// never holds a view up.
class RecentsViewModel : public std::enable_shared_from_this<RecentsViewModel> {
 public:
  /// Gives an entry its title; nothing for one that is not shown. Called on `worker`.
  using Hydrator = std::function<std::optional<RecentItem>(const RecentEntryRow&)>;

  struct Settings {
    RecentsQueries recents;
    /// Makes the hydrator of one reload, on `worker`. A callable, since RecentsHydrator
    /// brings ICU with it: null where nobody looks at the list, which then stays empty,
    /// and for whose sake nothing is read or observed.
    std::function<Hydrator()> hydrator;
    CurrentUser userIDProvider;
    std::function<AgentPreferences::Snapshot()> preferences;
    std::shared_ptr<StoreNotifications> storeNotifications;
    /// Where changes of the account are posted.
    NotificationCenter notifications;
    Executor main;
    Executor worker;
    Log log;
  };

  explicit RecentsViewModel(Settings settings);

  /// Reloads from here on after each change of the account, and after each change of
  /// the recents of the account that the last reload was for.
  void subscribe();

  /// Ends when a reload that began after this call has ended. It does not fail: what
  /// goes wrong is logged and leaves the items. From any executor.
  Task<> reload();

  // On the main executor.

  const std::vector<RecentItem>& items() const { return items_; }
  const std::optional<std::string>& currentUserID() const { return currentUserID_; }
  const std::optional<VorlaneApp>& appFilter() const { return appFilter_; }
  /// Shows the entries of one application alone, or of both, and reloads.
  void setAppFilter(std::optional<VorlaneApp> filter);
  /// `handler` runs on the main executor whenever the items have been replaced.
  [[nodiscard]] Observation observe(std::function<void()> handler);

 private:
  std::shared_ptr<Event> requestReload();
  std::function<void()> reloadOnMain();
  Task<> reloadWhileWanted();
  Task<> reloadOnce();
  void adopt(std::optional<std::string> user);
  void show(std::vector<RecentItem> items);
  std::vector<RecentItem> read(const std::string& user, std::optional<VorlaneApp> filter) const;

  const Settings settings_;
  std::vector<RecentItem> items_;
  std::optional<VorlaneApp> appFilter_;
  std::optional<std::string> currentUserID_;
  std::optional<StoreNotifications::Observer> storeObserver_;
  Observation authObserver_;
  NotificationCenter shown_;

  bool reloading_ = false;
  /// Set when the reload that is wanted next has ended; null while none is. However many
  /// changes are signalled while one reload runs, one more follows it.
  std::shared_ptr<Event> wanted_;
};

}  // namespace vorlane
