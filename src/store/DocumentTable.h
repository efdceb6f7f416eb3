#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/DocumentRow.h"
#include "store/EditedRow.h"
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
  /// The spelling in which the table holds an id.
  std::string (*storedID)(const std::string& id);
  /// What an edit is answered with when there is no such row. The id is as it was given.
  DomainFailure (*notFound)(const std::string& id);
  /// What it is answered with when it would make a whole document of a stub: the cloud has
  /// the document, and all that is here of it is a title. Null where a stub is edited like an
  /// empty document.
  DomainFailure (*onlyInCloud)(const std::string& id) = nullptr;
};

/// How much of a document an edit decides.
enum class DocumentEdit {
  part,   ///< the rest stays, so that it has to be here
  whole,  ///< everything that the document shows is replaced
};

/// What the query objects of the tables of documents share and what needs no record: how a
/// document is edited, which rows the cloud has to be sent, and what its answers do to them.
/// Every id may come in any spelling. A small value, copied freely, usable from any thread.
/// Reads run where they stand; writes are tasks, each one transaction, which is made even
/// when its awaiter is cancelled. After a commit that changed something the owner's scope is
/// signalled on the awaiter's side, before the task ends. Everything may throw DatabaseFailure.
class DocumentTable {
 public:
  /// How many of the owner's rows the cloud has to be sent, and how many it has refused
  /// since their last edit.
  struct Counts {
    std::int64_t pending = 0;
    std::int64_t blocked = 0;
  };

  /// The present, by the clock that stamps the rows.
  Date now() const { return clock_(); }

  /// What decides whether the cloud has to be sent the row, without its document.
  std::optional<RowStatus> status(const std::string& id) const;
  /// Reads no document.
  Counts counts(const std::string& ownerID) const;
  /// The ids of the rows that the cloud has to be sent, the oldest edit first. Reads no document.
  std::vector<std::string> pendingIDs(const std::string& ownerID) const;

  /// Reads a row, has `transform(EditedRow&)` edit it and writes it back with a later
  /// `updatedAt`, also when nothing was changed: it is then pushed once more, which costs
  /// one idempotent upload. Read, edit and write are one transaction, so that no other
  /// edit is lost, and other columns keep what a push writes meanwhile. Returns what the
  /// transform returns. The transform runs on the writer thread and must own all that it
  /// uses; when it throws, nothing is written. Throws the kind's `notFound`, and its
  /// `onlyInCloud` for an edit of a part that leaves more than a stub of one: the next push
  /// would put that part in the place of the whole document.
  template <class Transform>
  auto mutateRow(std::string id, Transform transform, DocumentEdit edit = DocumentEdit::part) const
      -> Task<std::invoke_result_t<Transform&, EditedRow&>> {
    using Report = std::invoke_result_t<Transform&, EditedRow&>;
    return pool().writeAsync([table = *this, id = std::move(id), transform = std::move(transform),
                              edit](Database& database) mutable -> Report {
      OpenedRow opened;
      table.openRow(database, id, opened);
      if constexpr (std::is_void_v<Report>) {
        transform(opened.row());
        table.writeBack(database, id, opened, edit);
      } else {
        // It must not lie in the document's memory, which ends here.
        Report report = detachedReport(transform(opened.row()));
        table.writeBack(database, id, opened, edit);
        return report;
      }
    });
  }

  /// The same for a transform of the document alone, `transform(JSONMap&)`.
  template <class Transform>
  auto mutateDocument(std::string id, Transform transform, DocumentEdit edit = DocumentEdit::part) const
      -> Task<std::invoke_result_t<Transform&, JSONMap&>> {
    return mutateRow(
        std::move(id),
        [transform = std::move(transform)](EditedRow& row) mutable { return transform(row.document); }, edit);
  }

  /// The cloud took the document as it was at `at`, the row's `updatedAt` from before
  /// the upload: an edit made meanwhile leaves the row dirty. `remote` is the cloud's number
  /// for the row, or its revision. Without such a row nothing happens.
  Task<> markPushed(std::string id, std::int64_t remote, Date at) const;
  /// The cloud refused the document of `at` for good. Signals nobody.
  Task<> markPushBlocked(std::string id, Date at) const;

 protected:
  /// `kind` has to outlive the object.
  DocumentTable(const DocumentTableKind& kind, std::shared_ptr<AgentStore> store,
                std::shared_ptr<StoreNotifications> notifications, Clock clock)
      : kind_(&kind),
        store_(std::move(store)),
        notifications_(std::move(notifications)),
        clock_(std::move(clock)) {}

  const DatabasePool& pool() const { return store_->dbWriter(); }
  std::string storedID(const std::string& id) const { return kind_->storedID(id); }
  Task<> remove(std::string id) const;
  /// `updatedAt` of a cloud listing as it is to be compared and stored: a time in the
  /// future counts as the present.
  Date listingDate(Date updatedAt) const;

  // Within a write of the pool; ids are as they are stored.

  std::optional<RowStatus> status(Database& database, const std::string& id) const;
  std::optional<std::string> ownerOf(Database& database, const std::string& id) const;
  /// Takes a listing's word on a row that has no local edits. True when something changed.
  bool refresh(Database& database, const RowStatus& row, const std::string& title, Date date) const;
  void signalAfterCommit(Database& database, const std::string& ownerID) const;

 private:
  void openRow(Database& database, const std::string& id, OpenedRow& opened) const;
  void writeBack(Database& database, const std::string& id, const OpenedRow& opened, DocumentEdit edit) const;
  /// Hands out the owner's rows that the cloud lacks something of, the oldest edit first.
  template <class Visit>
  void forEachUnsent(const std::string& ownerID, const Visit& visit) const;

  const DocumentTableKind* kind_;
  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<StoreNotifications> notifications_;
  Clock clock_;
};

}  // namespace vorlane
