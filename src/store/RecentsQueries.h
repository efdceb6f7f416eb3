#pragma once

#include "base/Date.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/RecentEntryRow.h"
#include "store/StoreNotifications.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// The one way to the table `recents`. A small value, copied freely, usable from any
/// thread. Reads run where they stand; writes are tasks, each one statement, which is
/// made even when its awaiter is cancelled, and after which the person's scope is
/// signalled. Everything may throw DatabaseFailure.
class RecentsQueries {
 public:
  RecentsQueries(std::shared_ptr<AgentStore> store, std::shared_ptr<StoreNotifications> notifications)
      : store_(std::move(store)), notifications_(std::move(notifications)) {}

  /// Notes that the person opened the entity. Of one entity there is one row: the time
  /// that is recorded last stands.
  Task<> record(std::string userID, std::string app, std::string entityID, Date openedAt) const;
  /// The person's entries, the last opened first, at most `limit`: none for zero or less.
  std::vector<RecentEntryRow> recent(const std::string& userID, std::int64_t limit) const;
  /// Forgets all that the person opened.
  Task<> clear(std::string userID) const;

 private:
  void signalAfterCommit(Database& database, const std::string& userID) const;

  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<StoreNotifications> notifications_;
};

}  // namespace vorlane
