#include "store/RecentsQueries.h"

#include <algorithm>

namespace vorlane {

Task<> RecentsQueries::record(std::string userID, std::string app, std::string entityID,
                              Date openedAt) const {
  return store_->dbWriter().writeAsync([queries = *this, userID = std::move(userID), app = std::move(app),
                                        entityID = std::move(entityID), openedAt](Database& database) {
    database.execute(
        "INSERT INTO recents (user_id, app, entity_id, opened_at)\nVALUES (?, ?, ?, ?)\n"
        "ON CONFLICT(user_id, app, entity_id)\nDO UPDATE SET opened_at = excluded.opened_at",
        userID, app, entityID, openedAt);
    queries.signalAfterCommit(database, userID);
  });
}

std::vector<RecentEntryRow> RecentsQueries::recent(const std::string& userID, std::int64_t limit) const {
  static const auto sql = Database::selectSQL(RecentEntryRow::table, RecentEntryRow::columns,
                                              "user_id = ? ORDER BY opened_at DESC LIMIT ?");
  // To the database a limit below zero means no limit at all.
  const auto atMost = std::max<std::int64_t>(limit, 0);
  return store_->dbWriter().read(
      [&](Database& database) { return database.fetchAll<RecentEntryRow>(sql, userID, atMost); });
}

Task<> RecentsQueries::clear(std::string userID) const {
  return store_->dbWriter().writeAsync([queries = *this, userID = std::move(userID)](Database& database) {
    database.execute("DELETE FROM recents WHERE user_id = ?", userID);
    queries.signalAfterCommit(database, userID);
  });
}

void RecentsQueries::signalAfterCommit(Database& database, const std::string& userID) const {
  database.afterCommit(
      [notifications = notifications_, scope = StoreScope::recents(userID)] { notifications->post(scope); });
}

}  // namespace vorlane
