#include "store/LedgerlyQueries.h"

#include "base/Identifiers.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

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

}  // namespace

const DocumentTableKind LedgerlyQueries::kind{.table = LedgerlySheetRow::table,
                                              .remoteColumn = "remote_id",
                                              .scope = &StoreScope::ledgerly,
                                              .storedID = [](const std::string& id) { return id; },
                                              .notFound = &LedgerlyQueries::sheetNotFound,
                                              .onlyInCloud = &LedgerlyQueries::sheetOnlyInCloud};

DomainFailure LedgerlyQueries::sheetNotFound(const std::string& id) {
  return {"ledgerly", 404, "sheet " + id + " not found"};
}

DomainFailure LedgerlyQueries::sheetOnlyInCloud(const std::string& id) {
  return {"ledgerly", 409,
          "only the title of sheet " + id +
              " is on this computer: its contents are in the cloud, and an edit here would replace them. "
              "Nothing was changed."};
}

std::optional<LedgerlySheetRow> LedgerlyQueries::fetchResolving(const std::string& id) const {
  return pool().read(
      [&](Database& database) { return resolve<LedgerlySheetRow>(database, id, LedgerlySheetRow::columns); });
}

std::vector<LedgerlySheetMeta> LedgerlyQueries::listMeta(const std::string& ownerID) const {
  return pool().readOne([&](Database& database) {
    return database.fetchAll<LedgerlySheetMeta>(
        "SELECT id, title, updated_at FROM ledgerly_sheets WHERE owner_id = ? ORDER BY updated_at DESC",
        ownerID);
  });
}

Task<bool> LedgerlyQueries::mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                                Date updatedAt) const {
  auto stub = stubOf(std::move(id), std::move(ownerID), std::move(title), updatedAt);
  if (const auto number = decimalInteger(stub.id)) stub.remoteID = *number;
  return pool().writeAsync([queries = *this, stub = std::move(stub)](Database& database) {
    return queries.mergeListing(database, resolve<RowStatus>(database, stub.id, RowStatus::columns), stub);
  });
}

Task<bool> LedgerlyQueries::applyServerCopy(std::string id, std::string data, std::optional<Date> baseline,
                                            Date date) const {
  return pool().writeAsync(
      [queries = *this, id = std::move(id), data = std::move(data), baseline, date](Database& database) {
        const auto row = resolve<RowStatus>(database, id, RowStatus::columns);
        if (!row || !baseline || row->updatedAt > *baseline) return false;
        // Later than the baseline whatever the clock says: a second answer to it is refused.
        const auto time = std::max(date, *baseline + std::chrono::milliseconds(1));
        database.execute(
            "UPDATE ledgerly_sheets SET data = ?, updated_at = ?, synced_at = ?, push_blocked_at = NULL "
            "WHERE id = ?",
            data, time, time, row->id);
        queries.signalAfterCommit(database, row->ownerID);
        return true;
      });
}

}  // namespace vorlane
