#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/DocumentTable.h"
#include "store/LedgerlySheetRow.h"
#include "store/StoreNotifications.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorlane {

/// How much of a sheet's document an edit decides.
enum class SheetEdit {
  part,   ///< the rest stays, so that it has to be here
  whole,  ///< everything that a sheet shows is replaced
};

/// The one way to the table `ledgerly_sheets`. A small value, copied freely, usable
/// from any thread. Reads run where they stand; writes are tasks, each one
/// transaction, which is made even when its awaiter is cancelled. After a commit that
/// changed something the owner's scope is signalled on the awaiter's side, before
/// the task ends. Everything may throw DatabaseFailure.
class LedgerlyQueries {
 public:
  LedgerlyQueries(std::shared_ptr<AgentStore> store, std::shared_ptr<StoreNotifications> notifications,
                  Clock clock = vorlane::now)
      : sheets_(kind, std::move(store), std::move(notifications), std::move(clock)) {}

  /// DomainFailure ("ledgerly", 404), "sheet ID not found".
  static DomainFailure sheetNotFound(const std::string& id);
  /// DomainFailure ("ledgerly", 409): the sheet is a stub.
  static DomainFailure sheetOnlyInCloud(const std::string& id);

  /// The present, by the clock that stamps the rows.
  Date now() const { return sheets_.now(); }

  /// By primary key alone.
  std::optional<LedgerlySheetRow> fetch(const std::string& id) const;
  /// By primary key, else by the cloud's number when the id is one.
  std::optional<LedgerlySheetRow> fetchResolving(const std::string& id) const;
  /// What decides whether the cloud has to be sent the sheet, without its document.
  std::optional<RowStatus> standing(const std::string& id) const;
  /// The owner's sheets, the latest edit first.
  std::vector<LedgerlySheetRow> listSheets(const std::string& ownerID) const;
  /// The same without the documents, for lists.
  std::vector<LedgerlySheetMeta> listMeta(const std::string& ownerID) const;
  /// What the cloud has to be sent, the oldest edit first: dirty rows that it has
  /// not refused since their last edit.
  std::vector<LedgerlySheetRow> pendingPush(const std::string& ownerID) const;
  /// The ids of those, in the same order; no document is read.
  std::vector<std::string> pendingIDs(const std::string& ownerID) const;
  /// How many those are, and how many the cloud has refused since their last edit.
  DocumentTable::Counts counts(const std::string& ownerID) const;

  /// Inserts the row or updates the one of its id.
  Task<> save(LedgerlySheetRow row) const;
  /// Gives the sheet another title and a later `updatedAt`, and leaves its other columns
  /// to whoever else writes them. Without such a sheet nothing happens.
  Task<> rename(std::string id, std::string title) const;

  /// Edits a sheet's document in one transaction, see DocumentTable::mutate. Throws
  /// `sheetNotFound` when there is no such sheet, and `sheetOnlyInCloud` for an edit of a
  /// part of a stub: the next pass would put that part in the place of the whole sheet.
  template <class Transform>
  auto mutateDocument(std::string id, Transform transform, SheetEdit edit = SheetEdit::part) const
      -> Task<std::invoke_result_t<Transform&, JSONMap&>> {
    EditRefusals refusals{.notFound = sheetNotFound(id)};
    if (edit == SheetEdit::part) refusals.onlyInCloud = sheetOnlyInCloud(id);
    return sheets_.mutate(std::move(id), std::move(refusals), std::move(transform));
  }

  /// The cloud took the document as it was at `at`, the row's `updatedAt` from before
  /// the upload: an edit made meanwhile leaves the row dirty. Without such a row
  /// nothing happens.
  Task<> markPushed(std::string id, std::int64_t remoteID, Date at) const;
  /// The cloud refused the document of `at` for good. Signals nobody.
  Task<> markPushBlocked(std::string id, Date at) const;
  /// Writes a stub for a sheet of a cloud listing, or refreshes title and time of a
  /// row that has no local edits. A time in the future counts as the present. True
  /// when the row changed.
  Task<bool> mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                 Date updatedAt) const;
  /// Replaces the document by the cloud's, unless it was edited after `baseline`, the
  /// `updatedAt` that the caller saw before the cloud changed it. True when it was replaced.
  Task<bool> applyServerCopy(std::string id, std::string data, std::optional<Date> baseline, Date date) const;
  Task<> deleteSheet(std::string id) const;

 private:
  static const DocumentTableKind kind;

  DocumentTable sheets_;
};

}  // namespace vorlane
