#include "store/LedgerlyQueries.h"

#include "base/Failure.h"
#include "base/Identifiers.h"
#include "store/SnapshotCodec.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace vorlane {
namespace {

using std::chrono::milliseconds;

/// What decides whether the cloud may touch a row; the document stays where it is.
struct Standing {
  std::string id;
  std::string ownerID;
  std::string title;
  Date updatedAt;
  std::optional<Date> syncedAt;
  std::optional<Date> pushBlockedAt;

  bool isDirty() const { return !syncedAt || updatedAt > *syncedAt; }
  static Standing fromRow(const Row& row) {
    return {.id = row.get<std::string>("id"),
            .ownerID = row.get<std::string>("owner_id"),
            .title = row.get<std::string>("title"),
            .updatedAt = row.get<Date>("updated_at"),
            .syncedAt = row.get<std::optional<Date>>("synced_at"),
            .pushBlockedAt = row.get<std::optional<Date>>("push_blocked_at")};
  }
};

constexpr std::array<std::string_view, 6> standingColumns{"id",         "owner_id",  "title",
                                                          "updated_at", "synced_at", "push_blocked_at"};

/// By primary key, else by the cloud's number when the id is a decimal integer.
template <class T>
std::optional<T> resolve(Database& database, const std::string& id,
                         std::span<const std::string_view> columns) {
  const auto query = [&](std::string_view condition) {
    return Database::selectSQL(LedgerlySheetRow::table, columns, condition);
  };
  auto found = database.fetchOne<T>(query("id = ?"), id);
  if (found) return found;
  const auto number = decimalInteger(id);
  if (!number) return std::nullopt;
  return database.fetchOne<T>(query("remote_id = ?"), *number);
}

std::optional<std::string> ownerOf(Database& database, const std::string& id) {
  return database.fetchOne<std::string>("SELECT owner_id FROM ledgerly_sheets WHERE id = ?", id);
}

}  // namespace

std::optional<LedgerlySheetRow> LedgerlyQueries::fetch(const std::string& id) const {
  return store_->dbWriter().read(
      [&](Database& database) { return database.fetchRecord<LedgerlySheetRow>(id); });
}

std::optional<LedgerlySheetRow> LedgerlyQueries::fetchResolving(const std::string& id) const {
  return store_->dbWriter().read(
      [&](Database& database) { return resolve<LedgerlySheetRow>(database, id, LedgerlySheetRow::columns); });
}

std::vector<LedgerlySheetRow> LedgerlyQueries::listSheets(const std::string& ownerID) const {
  static const auto sql = Database::selectSQL(LedgerlySheetRow::table, LedgerlySheetRow::columns,
                                              "owner_id = ? ORDER BY updated_at DESC");
  return store_->dbWriter().read(
      [&](Database& database) { return database.fetchAll<LedgerlySheetRow>(sql, ownerID); });
}

std::vector<LedgerlySheetMeta> LedgerlyQueries::listMeta(const std::string& ownerID) const {
  return store_->dbWriter().read([&](Database& database) {
    return database.fetchAll<LedgerlySheetMeta>(
        "SELECT id, title, updated_at FROM ledgerly_sheets WHERE owner_id = ? ORDER BY updated_at DESC",
        ownerID);
  });
}

std::vector<LedgerlySheetRow> LedgerlyQueries::pendingPush(const std::string& ownerID) const {
  static const auto sql = Database::selectSQL(LedgerlySheetRow::table, LedgerlySheetRow::columns,
                                              "owner_id = ? ORDER BY updated_at ASC");
  return store_->dbWriter().read([&](Database& database) {
    std::vector<LedgerlySheetRow> pending;
    const RowVisitor visit = [&](const Row& row) {
      auto sheet = LedgerlySheetRow::fromRow(row);
      if (sheet.isDirty() && !sheet.isBlocked()) pending.push_back(std::move(sheet));
      return true;
    };
    database.forEachRow(sql, visit, ownerID);
    return pending;
  });
}

std::int64_t LedgerlyQueries::pendingCount(const std::string& ownerID) const {
  // The stored form of a date sorts as the dates do.
  return store_->dbWriter().read([&](Database& database) {
    return database.fetchCount(
        "SELECT COUNT(*) FROM ledgerly_sheets WHERE owner_id = ? AND (synced_at IS NULL OR updated_at > "
        "synced_at) "
        "AND (push_blocked_at IS NULL OR updated_at > push_blocked_at)",
        ownerID);
  });
}

Task<> LedgerlyQueries::save(LedgerlySheetRow row) const {
  return store_->dbWriter().writeAsync([queries = *this, row = std::move(row)](Database& database) {
    database.saveRecord(row);
    queries.signalAfterCommit(database, row.ownerID);
  });
}

LedgerlyQueries::OpenedDocument LedgerlyQueries::openDocument(Database& database, const std::string& id) {
  std::optional<OpenedDocument> opened;
  // The document is parsed where the database holds it; it may be megabytes.
  const RowVisitor visit = [&](const Row& row) {
    opened.emplace(OpenedDocument{.ownerID = row.get<std::string>("owner_id"),
                                  .updatedAt = row.get<Date>("updated_at"),
                                  .document = SnapshotCodec::decode(row.get<std::string_view>("data"))});
    return false;
  };
  database.forEachRow("SELECT owner_id, data, updated_at FROM ledgerly_sheets WHERE id = ?", visit, id);
  if (!opened) throw DomainFailure("ledgerly", 404, "sheet " + id + " not found");
  return std::move(*opened);
}

void LedgerlyQueries::writeBack(Database& database, const std::string& id,
                                const OpenedDocument& opened) const {
  // An edit is later than what it follows, also when the clock has been set back.
  const auto updatedAt =
      std::max(storageRounded(clock_()), storageRounded(opened.updatedAt) + milliseconds(1));
  const auto data = SnapshotCodec::encode(opened.document);
  database.execute("UPDATE ledgerly_sheets SET data = ?, updated_at = ? WHERE id = ?", data, updatedAt, id);
  signalAfterCommit(database, opened.ownerID);
}

Task<> LedgerlyQueries::markPushed(std::string id, std::int64_t remoteID, Date at) const {
  return store_->dbWriter().writeAsync(
      [queries = *this, id = std::move(id), remoteID, at](Database& database) {
        const auto owner = ownerOf(database, id);
        if (!owner) return;
        database.execute(
            "UPDATE ledgerly_sheets SET synced_at = ?, remote_id = ?, push_blocked_at = NULL WHERE id = ?",
            at, remoteID, id);
        queries.signalAfterCommit(database, *owner);
      });
}

Task<> LedgerlyQueries::markPushBlocked(std::string id, Date at) const {
  return store_->dbWriter().writeAsync([id = std::move(id), at](Database& database) {
    database.execute("UPDATE ledgerly_sheets SET push_blocked_at = ? WHERE id = ?", at, id);
  });
}

Task<bool> LedgerlyQueries::mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                                Date updatedAt) const {
  // Clamped, then passed through the storage form: without that round trip a time
  // would never equal the one that was stored of it.
  const Date date = storageRounded(std::min(updatedAt, clock_()));
  return store_->dbWriter().writeAsync([queries = *this, id = std::move(id), ownerID = std::move(ownerID),
                                        title = std::move(title), date](Database& database) {
    const auto row = resolve<Standing>(database, id, standingColumns);
    if (!row) {
      std::optional<std::int64_t> remoteID;
      if (const auto number = decimalInteger(id)) remoteID = *number;
      database.saveRecord(LedgerlySheetRow{.id = id,
                                           .ownerID = ownerID,
                                           .title = title,
                                           .data = "{}",
                                           .createdAt = date,
                                           .updatedAt = date,
                                           .syncedAt = date,
                                           .remoteID = remoteID});
      queries.signalAfterCommit(database, ownerID);
      return true;
    }
    if (row->isDirty()) return false;  // a local edit outranks a listing
    if (row->title == title && row->updatedAt == date && row->syncedAt == date && !row->pushBlockedAt) {
      return false;
    }
    database.execute(
        "UPDATE ledgerly_sheets SET title = ?, updated_at = ?, synced_at = ?, push_blocked_at = NULL "
        "WHERE id = ?",
        title, date, date, row->id);
    queries.signalAfterCommit(database, row->ownerID);
    return true;
  });
}

Task<bool> LedgerlyQueries::applyServerCopy(std::string id, std::string data, std::optional<Date> baseline,
                                            Date date) const {
  return store_->dbWriter().writeAsync(
      [queries = *this, id = std::move(id), data = std::move(data), baseline, date](Database& database) {
        const auto row = resolve<Standing>(database, id, standingColumns);
        if (!row || !baseline || row->updatedAt > *baseline) return false;
        database.execute(
            "UPDATE ledgerly_sheets SET data = ?, updated_at = ?, synced_at = ?, push_blocked_at = NULL "
            "WHERE id = ?",
            data, date, date, row->id);
        queries.signalAfterCommit(database, row->ownerID);
        return true;
      });
}

Task<> LedgerlyQueries::deleteSheet(std::string id) const {
  return store_->dbWriter().writeAsync([queries = *this, id = std::move(id)](Database& database) {
    const auto owner = ownerOf(database, id);
    if (!owner) return;
    database.deleteRecord<LedgerlySheetRow>(id);
    queries.signalAfterCommit(database, *owner);
  });
}

void LedgerlyQueries::signalAfterCommit(Database& database, const std::string& ownerID) const {
  database.afterCommit([notifications = notifications_, scope = StoreScope::ledgerly(ownerID)] {
    notifications->post(scope);
  });
}

}  // namespace vorlane
