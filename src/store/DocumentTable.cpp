#include "store/DocumentTable.h"

#include "store/SnapshotCodec.h"

#include <fmt/format.h>

#include <algorithm>

namespace vorlane {

using std::chrono::milliseconds;

RowStatus RowStatus::fromRow(const Row& row) {
  return {.id = row.get<std::string>("id"),
          .ownerID = row.get<std::string>("owner_id"),
          .title = row.get<std::string>("title"),
          .updatedAt = row.get<Date>("updated_at"),
          .syncedAt = row.get<std::optional<Date>>("synced_at"),
          .pushBlockedAt = row.get<std::optional<Date>>("push_blocked_at")};
}

// The stored form of a date sorts as the dates do.

DocumentTable::Counts DocumentTable::counts(const std::string& ownerID) const {
  const auto sql = fmt::format(
      "SELECT push_blocked_at IS NOT NULL AND updated_at <= push_blocked_at, COUNT(*) FROM {} "
      "WHERE owner_id = ? AND (synced_at IS NULL OR updated_at > synced_at) GROUP BY 1",
      kind_->table);
  return pool().read([&](Database& database) {
    Counts counts;
    const RowVisitor visit = [&](const Row& row) {
      (row.at<std::int64_t>(0) != 0 ? counts.blocked : counts.pending) = row.at<std::int64_t>(1);
      return true;
    };
    database.forEachRow(sql, visit, ownerID);
    return counts;
  });
}

std::vector<std::string> DocumentTable::pendingIDs(const std::string& ownerID) const {
  const auto sql = fmt::format(
      "SELECT id FROM {} WHERE owner_id = ? AND (synced_at IS NULL OR updated_at > synced_at) "
      "AND (push_blocked_at IS NULL OR updated_at > push_blocked_at) ORDER BY updated_at ASC",
      kind_->table);
  return pool().read([&](Database& database) { return database.fetchAll<std::string>(sql, ownerID); });
}

DocumentTable::Opened DocumentTable::open(Database& database, const std::string& id,
                                          const EditRefusals& refusals) const {
  std::optional<Opened> opened;
  bool wasSynced = false;
  // The document is parsed where the database holds it; it may be megabytes.
  const RowVisitor visit = [&](const Row& row) {
    opened.emplace(Opened{.ownerID = row.get<std::string>("owner_id"),
                          .updatedAt = row.get<Date>("updated_at"),
                          .document = SnapshotCodec::decode(row.get<std::string_view>("data"))});
    wasSynced = row.get<std::optional<Date>>("synced_at").has_value();
    return false;
  };
  database.forEachRow(
      fmt::format("SELECT owner_id, data, updated_at, synced_at FROM {} WHERE id = ?", kind_->table), visit,
      id);
  if (!opened) throw refusals.notFound;
  if (refusals.onlyInCloud && wasSynced && opened->document.empty()) throw *refusals.onlyInCloud;
  return std::move(*opened);
}

Date DocumentTable::editTime(Date previousEdit) const {
  return std::max(storageRounded(clock_()), storageRounded(previousEdit) + milliseconds(1));
}

void DocumentTable::writeBack(Database& database, const std::string& id, const Opened& opened) const {
  const auto data = SnapshotCodec::encode(opened.document);
  database.execute(fmt::format("UPDATE {} SET data = ?, updated_at = ? WHERE id = ?", kind_->table), data,
                   editTime(opened.updatedAt), id);
  signalAfterCommit(database, opened.ownerID);
}

Task<> DocumentTable::rename(std::string id, std::string title) const {
  return pool().writeAsync([table = *this, id = std::move(id), title = std::move(title)](Database& database) {
    const auto row = table.standing(database, id);
    if (!row) return;
    database.execute(fmt::format("UPDATE {} SET title = ?, updated_at = ? WHERE id = ?", table.kind_->table),
                     title, table.editTime(row->updatedAt), id);
    table.signalAfterCommit(database, row->ownerID);
  });
}

Task<> DocumentTable::markPushed(std::string id, std::int64_t remote, Date at) const {
  return pool().writeAsync([table = *this, id = std::move(id), remote, at](Database& database) {
    const auto owner = table.ownerOf(database, id);
    if (!owner) return;
    database.execute(fmt::format("UPDATE {} SET synced_at = ?, {} = ?, push_blocked_at = NULL WHERE id = ?",
                                 table.kind_->table, table.kind_->remoteColumn),
                     at, remote, id);
    table.signalAfterCommit(database, *owner);
  });
}

Task<> DocumentTable::markPushBlocked(std::string id, Date at) const {
  return pool().writeAsync([table = kind_->table, id = std::move(id), at](Database& database) {
    database.execute(fmt::format("UPDATE {} SET push_blocked_at = ? WHERE id = ?", table), at, id);
  });
}

Task<> DocumentTable::remove(std::string id) const {
  return pool().writeAsync([table = *this, id = std::move(id)](Database& database) {
    const auto owner = table.ownerOf(database, id);
    if (!owner) return;
    database.execute(fmt::format("DELETE FROM {} WHERE id = ?", table.kind_->table), id);
    table.signalAfterCommit(database, *owner);
  });
}

Date DocumentTable::listingDate(Date updatedAt) const {
  // Passed through the storage form: without that round trip a time would never
  // equal the one that was stored of it.
  return storageRounded(std::min(updatedAt, clock_()));
}

std::optional<RowStatus> DocumentTable::standing(Database& database, const std::string& id) const {
  return database.fetchOne<RowStatus>(Database::selectSQL(kind_->table, RowStatus::columns, "id = ?"), id);
}

bool DocumentTable::refresh(Database& database, const RowStatus& row, const std::string& title,
                            Date date) const {
  if (DocumentRow::isDirty(row)) return false;  // a local edit outranks a listing
  if (row.title == title && row.updatedAt == date && row.syncedAt == date && !row.pushBlockedAt) return false;
  database.execute(
      fmt::format(
          "UPDATE {} SET title = ?, updated_at = ?, synced_at = ?, push_blocked_at = NULL WHERE id = ?",
          kind_->table),
      title, date, date, row.id);
  signalAfterCommit(database, row.ownerID);
  return true;
}

std::optional<std::string> DocumentTable::ownerOf(Database& database, const std::string& id) const {
  return database.fetchOne<std::string>(fmt::format("SELECT owner_id FROM {} WHERE id = ?", kind_->table),
                                        id);
}

void DocumentTable::signalAfterCommit(Database& database, const std::string& ownerID) const {
  database.afterCommit(
      [notifications = notifications_, scope = kind_->scope(ownerID)] { notifications->post(scope); });
}

}  // namespace vorlane
