#include "store/DocumentTable.h"

#include "store/DatabaseFailure.h"
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

template <class Visit>
void DocumentTable::forEachUnsent(const std::string& ownerID, const Visit& visit) const {
  // Dates are read before they are compared: programs write them in more forms than one.
  const auto stateOf = [](const Row& row) {
    try {
      return DocumentRow::pushState(RowStatus::fromRow(row));
    } catch (const DatabaseFailure&) {
      return PushState::pending;  // of which its own push fails and tells, and not the others'
    }
  };
  const auto sql =
      Database::selectSQL(kind_->table, RowStatus::columns, "owner_id = ? ORDER BY updated_at ASC");
  pool().readOne([&](Database& database) {
    const RowVisitor visitUnsent = [&](const Row& row) {
      const auto state = stateOf(row);
      if (state != PushState::clean) visit(row, state);
      return true;
    };
    database.forEachRow(sql, visitUnsent, ownerID);
  });
}

DocumentTable::Counts DocumentTable::counts(const std::string& ownerID) const {
  Counts counts;
  forEachUnsent(ownerID, [&](const Row&, PushState state) {
    ++(state == PushState::blocked ? counts.blocked : counts.pending);
  });
  return counts;
}

std::vector<std::string> DocumentTable::pendingIDs(const std::string& ownerID) const {
  std::vector<std::string> ids;
  forEachUnsent(ownerID, [&](const Row& row, PushState state) {
    if (state == PushState::pending) ids.push_back(row.get<std::string>("id"));
  });
  return ids;
}

std::optional<RowStatus> DocumentTable::status(const std::string& id) const {
  return pool().readOne([&](Database& database) { return status(database, storedID(id)); });
}

void DocumentTable::openRow(Database& database, const std::string& id, OpenedRow& opened) const {
  opened.id = storedID(id);
  bool found = false, wasSynced = false;
  // The document is parsed where the database holds it; it may be megabytes.
  const RowVisitor visit = [&](const Row& row) {
    found = true;
    opened.ownerID = row.get<std::string>("owner_id");
    opened.updatedAt = row.get<Date>("updated_at");
    wasSynced = row.get<std::optional<Date>>("synced_at").has_value();
    opened.read(row.get<std::string>("title"), row.get<std::string_view>("data"));
    return false;
  };
  database.forEachRow(
      fmt::format("SELECT owner_id, title, data, updated_at, synced_at FROM {} WHERE id = ?", kind_->table),
      visit, opened.id);
  if (!found) throw kind_->notFound(id);
  opened.isStub = wasSynced && opened.row().document.empty();
}

void DocumentTable::writeBack(Database& database, const std::string& id, const OpenedRow& opened,
                              DocumentEdit edit) const {
  const auto& [title, document] = opened.row();
  if (kind_->onlyInCloud != nullptr && opened.isStub && edit == DocumentEdit::part && !document.empty()) {
    throw kind_->onlyInCloud(id);
  }
  // An edit is always later than the one before, also when the clock has been set back.
  const auto time = std::max(storageRounded(clock_()), storageRounded(opened.updatedAt) + milliseconds(1));
  // A title that was not edited stays byte for byte what another program wrote.
  const auto newTitle = title == opened.storedTitle ? std::nullopt : std::optional(title);
  database.execute(
      fmt::format("UPDATE {} SET data = ?, title = coalesce(?, title), updated_at = ? WHERE id = ?",
                  kind_->table),
      SnapshotCodec::encode(document), newTitle, time, opened.id);
  signalAfterCommit(database, opened.ownerID);
}

Task<> DocumentTable::markPushed(std::string id, std::int64_t remote, Date at) const {
  return pool().writeAsync([table = *this, id = storedID(id), remote, at](Database& database) {
    const auto owner = table.ownerOf(database, id);
    if (!owner) return;
    database.execute(fmt::format("UPDATE {} SET synced_at = ?, {} = ?, push_blocked_at = NULL WHERE id = ?",
                                 table.kind_->table, table.kind_->remoteColumn),
                     at, remote, id);
    table.signalAfterCommit(database, *owner);
  });
}

Task<> DocumentTable::markPushBlocked(std::string id, Date at) const {
  return pool().writeAsync([table = kind_->table, id = storedID(id), at](Database& database) {
    database.execute(fmt::format("UPDATE {} SET push_blocked_at = ? WHERE id = ?", table), at, id);
  });
}

Task<> DocumentTable::remove(std::string id) const {
  return pool().writeAsync([table = *this, id = storedID(id)](Database& database) {
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

std::optional<RowStatus> DocumentTable::status(Database& database, const std::string& id) const {
  return database.fetchOne<RowStatus>(Database::selectSQL(kind_->table, RowStatus::columns, "id = ?"), id);
}

std::optional<std::string> DocumentTable::ownerOf(Database& database, const std::string& id) const {
  return database.fetchOne<std::string>(fmt::format("SELECT owner_id FROM {} WHERE id = ?", kind_->table),
                                        id);
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

void DocumentTable::signalAfterCommit(Database& database, const std::string& ownerID) const {
  database.afterCommit(
      [notifications = notifications_, scope = kind_->scope(ownerID)] { notifications->post(scope); });
}

}  // namespace vorlane
