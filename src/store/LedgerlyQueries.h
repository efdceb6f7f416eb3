#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/DocumentQueries.h"
#include "store/LedgerlySheetRow.h"
#include "store/StoreNotifications.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// The one way to the table `ledgerly_sheets`. Threads, transactions, signals and failures
/// are as DocumentTable has them.
class LedgerlyQueries : public DocumentQueries<LedgerlySheetRow> {
 public:
  LedgerlyQueries(std::shared_ptr<AgentStore> store, std::shared_ptr<StoreNotifications> notifications,
                  Clock clock = vorlane::now)
      : DocumentQueries(kind, std::move(store), std::move(notifications), std::move(clock)) {}

  /// DomainFailure ("ledgerly", 404), "sheet ID not found".
  static DomainFailure sheetNotFound(const std::string& id);
  /// DomainFailure ("ledgerly", 409): the sheet is a stub, and would become a whole one.
  static DomainFailure sheetOnlyInCloud(const std::string& id);

  /// By primary key, else by the cloud's number when the id is one.
  std::optional<LedgerlySheetRow> fetchResolving(const std::string& id) const;
  /// The owner's sheets, the latest edit first.
  std::vector<LedgerlySheetRow> listSheets(const std::string& ownerID) const { return list(ownerID); }
  /// The same without the documents, for lists.
  std::vector<LedgerlySheetMeta> listMeta(const std::string& ownerID) const;

  /// Writes a stub for a sheet of a cloud listing, or refreshes title and time of a
  /// row that has no local edits. A time in the future counts as the present. True
  /// when the row changed.
  Task<bool> mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                 Date updatedAt) const;
  /// Replaces the document by the cloud's, unless it was edited after `baseline`, the
  /// `updatedAt` that the caller saw before the cloud changed it. True when it was replaced.
  Task<bool> applyServerCopy(std::string id, std::string data, std::optional<Date> baseline, Date date) const;
  Task<> deleteSheet(std::string id) const { return remove(std::move(id)); }

 private:
  static const DocumentTableKind kind;
};

}  // namespace vorlane
