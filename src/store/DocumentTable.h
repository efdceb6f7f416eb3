#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/DocumentRow.h"
#include "store/RowStatus.h"
#include "store/StoreNotifications.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorlane {

/// How one table of documents differs from its sisters.
struct DocumentTableKind {
  std::string_view table;
  /// The column of the number by which the cloud knows the row, or its revision.
  std::string_view remoteColumn;
  /// Whose signal a change of a row posts.
  StoreScope (*scope)(const std::string& ownerID);
};

/// What an edit of a document that cannot be made is answered with.
struct EditRefusals {
  /// When there is no such row.
  DomainFailure notFound;
  /// When the row is a stub: the cloud has a document, and all that is here of it is a title.
  /// Without this failure a stub is edited like an empty document.
  std::optional<DomainFailure> onlyInCloud = std::nullopt;
};

/// What the query objects of the tables of documents share: how a document is edited,
/// which rows the cloud has to be sent, and what its answers do to them. A small
/// value, copied freely, usable from any thread. Reads run where they stand; writes
/// are tasks, each one transaction, which is made even when its awaiter is cancelled.
/// After a commit that changed something the owner's scope is signalled on the
/// awaiter's side, before the task ends. Everything may throw DatabaseFailure.
class DocumentTable {
 public:
  /// `kind` has to outlive the object.
  DocumentTable(const DocumentTableKind& kind, std::shared_ptr<AgentStore> store,
                std::shared_ptr<StoreNotifications> notifications, Clock clock)
      : kind_(&kind),
        store_(std::move(store)),
        notifications_(std::move(notifications)),
        clock_(std::move(clock)) {}

  Date now() const { return clock_(); }
  const DatabasePool& pool() const { return store_->dbWriter(); }

  /// By primary key.
  template <TableRecord Record>
  std::optional<Record> fetch(const std::string& id) const {
    return pool().read([&](Database& database) { return database.fetchRecord<Record>(id); });
  }

  /// The owner's rows, the latest edit first.
  template <TableRecord Record>
  std::vector<Record> list(const std::string& ownerID) const {
    static const auto sql =
        Database::selectSQL(Record::table, Record::columns, "owner_id = ? ORDER BY updated_at DESC");
    return pool().read([&](Database& database) { return database.fetchAll<Record>(sql, ownerID); });
  }

  /// What the cloud has to be sent, the oldest edit first: dirty rows that it has not
  /// refused since their last edit.
  template <TableRecord Record>
  std::vector<Record> pendingPush(const std::string& ownerID) const {
    static const auto sql =
        Database::selectSQL(Record::table, Record::columns, "owner_id = ? ORDER BY updated_at ASC");
    return pool().read([&](Database& database) {
      std::vector<Record> pending;
      const RowVisitor visit = [&](const Row& row) {
        auto record = Record::fromRow(row);
        if (DocumentRow::isDirty(record) && !DocumentRow::isBlocked(record))
          pending.push_back(std::move(record));
        return true;
      };
      database.forEachRow(sql, visit, ownerID);
      return pending;
    });
  }
  /// How many of the owner's dirty rows the cloud has to be sent, and how many it has
  /// refused since their last edit.
  struct Counts {
    std::int64_t pending = 0;
    std::int64_t blocked = 0;
  };
  /// Reads no document.
  Counts counts(const std::string& ownerID) const;
  /// The ids of what has to be sent, as pendingPush has them in their order.
  std::vector<std::string> pendingIDs(const std::string& ownerID) const;

  /// Inserts the row or updates the one of its id.
  template <TableRecord Record>
  Task<> save(Record record) const {
    return pool().writeAsync([table = *this, record = std::move(record)](Database& database) {
      database.saveRecord(record);
      table.signalAfterCommit(database, record.ownerID);
    });
  }

  /// Reads a document, has `transform(JSONMap&)` edit it and writes it back with a later
  /// `updatedAt`, also when nothing was changed: it is then pushed once more, which costs
  /// one idempotent upload. Read, edit and write are one transaction, so that no other
  /// edit is lost, and other columns keep what a push writes meanwhile. Returns what the
  /// transform returns. The transform runs on the writer thread and must own all that it
  /// uses; when it throws, nothing is written. Throws what `refusals` hold.
  template <class Transform>
  auto mutate(std::string id, EditRefusals refusals, Transform transform) const
      -> Task<std::invoke_result_t<Transform&, JSONMap&>> {
    using Report = std::invoke_result_t<Transform&, JSONMap&>;
    return pool().writeAsync([table = *this, id = std::move(id), refusals = std::move(refusals),
                              transform = std::move(transform)](Database& database) mutable -> Report {
      auto opened = table.open(database, id, refusals);
      if constexpr (std::is_void_v<Report>) {
        transform(opened.document);
        table.writeBack(database, id, opened);
      } else {
        Report report = transform(opened.document);
        table.writeBack(database, id, opened);
        return report;
      }
    });
  }

  /// Gives the row another title and a later `updatedAt`. Without such a row nothing happens.
  Task<> rename(std::string id, std::string title) const;

  /// The cloud took the document as it was at `at`, the row's `updatedAt` from before
  /// the upload: an edit made meanwhile leaves the row dirty. Without such a row
  /// nothing happens.
  Task<> markPushed(std::string id, std::int64_t remote, Date at) const;
  /// The cloud refused the document of `at` for good. Signals nobody.
  Task<> markPushBlocked(std::string id, Date at) const;
  Task<> remove(std::string id) const;

  /// `updatedAt` of a cloud listing as it is to be compared and stored: a time in the
  /// future counts as the present.
  Date listingDate(Date updatedAt) const;

  // Within a write of the pool.

  /// Takes the word of a cloud listing, whose title and time are those of `stub`: inserts
  /// it where there is no row, else refreshes the row if it has no local edits. True when
  /// something changed.
  template <TableRecord Record>
  bool mergeListing(Database& database, const std::optional<RowStatus>& present, const Record& stub) const {
    if (present) return refresh(database, *present, stub.title, stub.updatedAt);
    database.saveRecord(stub);
    signalAfterCommit(database, stub.ownerID);
    return true;
  }
  std::optional<RowStatus> standing(Database& database, const std::string& id) const;
  std::optional<std::string> ownerOf(Database& database, const std::string& id) const;
  void signalAfterCommit(Database& database, const std::string& ownerID) const;

 private:
  struct Opened {
    std::string ownerID;
    Date updatedAt;
    JSONMap document;
  };
  Opened open(Database& database, const std::string& id, const EditRefusals& refusals) const;
  /// The time of an edit of a row: now, but always later than the edit before, also when
  /// the clock has been set back.
  Date editTime(Date previousEdit) const;
  void writeBack(Database& database, const std::string& id, const Opened& opened) const;
  bool refresh(Database& database, const RowStatus& row, const std::string& title, Date date) const;

  const DocumentTableKind* kind_;
  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<StoreNotifications> notifications_;
  Clock clock_;
};

}  // namespace vorlane
