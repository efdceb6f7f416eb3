#pragma once

#include "store/DocumentTable.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// What the query objects of the tables of documents share and what comes in whole records.
/// Ids, threads, transactions, signals and failures are as DocumentTable has them.
template <TableRecord Record>
class DocumentQueries : public DocumentTable {
 public:
  /// By primary key alone.
  std::optional<Record> fetch(const std::string& id) const {
    return pool().readOne([&](Database& database) { return database.fetchRecord<Record>(storedID(id)); });
  }

  /// What the cloud has to be sent, the oldest edit first: dirty rows that it has not
  /// refused since their last edit.
  std::vector<Record> pendingPush(const std::string& ownerID) const {
    auto records = fetchAll(ownerID, "owner_id = ? ORDER BY updated_at ASC");
    std::erase_if(records,
                  [](const Record& record) { return DocumentRow::pushState(record) != PushState::pending; });
    return records;
  }

  /// Inserts the row or updates the one of its id.
  Task<> save(Record record) const {
    record.id = storedID(record.id);
    return pool().writeAsync([queries = *this, record = std::move(record)](Database& database) {
      database.saveRecord(record);
      queries.signalAfterCommit(database, record.ownerID);
    });
  }

 protected:
  using DocumentTable::DocumentTable;

  /// The owner's rows, the latest edit first.
  std::vector<Record> list(const std::string& ownerID) const {
    return fetchAll(ownerID, "owner_id = ? ORDER BY updated_at DESC");
  }

  /// The row of a cloud listing that nothing is known of here but its title and time.
  Record stubOf(std::string id, std::string ownerID, std::string title, Date updatedAt) const {
    const auto date = listingDate(updatedAt);
    return {.id = storedID(id),
            .ownerID = std::move(ownerID),
            .title = std::move(title),
            .data = "{}",
            .createdAt = date,
            .updatedAt = date,
            .syncedAt = date};
  }
  /// Within a write: inserts the stub where there is no row, else refreshes the row if it has
  /// no local edits. True when something changed.
  bool mergeListing(Database& database, const std::optional<RowStatus>& present, const Record& stub) const {
    if (present) return refresh(database, *present, stub.title, stub.updatedAt);
    database.saveRecord(stub);
    signalAfterCommit(database, stub.ownerID);
    return true;
  }

 private:
  std::vector<Record> fetchAll(const std::string& ownerID, std::string_view condition) const {
    const auto sql = Database::selectSQL(Record::table, Record::columns, condition);
    return pool().readOne([&](Database& database) { return database.fetchAll<Record>(sql, ownerID); });
  }
};

}  // namespace vorlane
