#pragma once

#include "auth/AccountMark.h"
#include "base/ShellLog.h"
#include "base/tasks/AsyncMutex.h"
#include "base/tasks/Timing.h"
#include "cloud/API.h"
#include "store/LedgerlyQueries.h"
#include "store/RecentsQueries.h"
#include "store/ScenewardQueries.h"
#include "sync/SyncJournal.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// Brings what the person worked on elsewhere into the list of recents, and titles and
/// dates of those documents into their tables; never their contents. Each pull is of the
/// whole lists, so one that failed half-way is simply made good by the next. It has to
/// outlive its tasks, which belong on the concurrent executor.
class RecentsSyncFetcher {
 public:
  struct Settings {
    RecentsQueries recents;
    std::optional<LedgerlyQueries> ledgerlyStore;
    std::optional<ScenewardQueries> scenewardStore;
    /// Of one account.
    cloud::API ledgerly;
    cloud::API sceneward;
    Log log;
    std::shared_ptr<SyncJournal> journal;
    /// Held from the question for the list of sheets to the last of its entries, so that it
    /// tells no older state than the rows have by then. The pusher of sheets holds it too.
    std::shared_ptr<AsyncMutex> exchange;
    Sleeper sleep = sleepFor;
  };

  explicit RecentsSyncFetcher(Settings settings);

  /// The poll loop: a pull at once and one after each interval, for whoever is signed in
  /// then. It ends when it is cancelled.
  Task<> runForever(std::chrono::seconds interval);

  /// One pull of both lists. What fails is logged; only cancellation throws.
  Task<> syncOnce(std::string userID);

 private:
  struct Listing;
  struct Entry;
  static const Listing listings[];

  Task<> pull(const Listing& listing, std::string userID) const;
  Task<std::string> answer(const Listing& listing, AccountMark mark) const;
  Task<> take(const Listing& listing, std::string userID, Entry entry) const;

  const Settings settings_;
};

}  // namespace vorlane
