#pragma once

#include "base/Date.h"
#include "base/ShellLog.h"
#include "base/tasks/Timing.h"
#include "platform/CloudRequest.h"
#include "store/LedgerlyQueries.h"
#include "sync/LedgerlyPushClient.h"
#include "sync/SyncJournal.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vorlane {

/// Carries the edits of sheets to the cloud, behind the back of whoever makes them.
/// What is pending is read from the rows at each pass, so a failed sheet is simply met
/// again. It has to outlive its tasks, which belong on the concurrent executor: they
/// read the database where they stand.
class LedgerlyPusher {
 public:
  struct Created {
    std::int64_t remoteID;
    friend bool operator==(const Created&, const Created&) = default;
  };
  struct Updated {
    std::int64_t remoteID;
    friend bool operator==(const Updated&, const Updated&) = default;
  };
  struct Failed {
    /// For people.
    std::string error;
    friend bool operator==(const Failed&, const Failed&) = default;
  };
  /// The row holds no list of categories: what a cloud listing told of a sheet.
  struct SkippedNotASheet {
    friend bool operator==(const SkippedNotASheet&, const SkippedNotASheet&) = default;
  };
  /// The person deleted the sheet in the cloud; it is not asked about until its next edit.
  struct SkippedSheetDeleted {
    friend bool operator==(const SkippedSheetDeleted&, const SkippedSheetDeleted&) = default;
  };
  using Outcome = std::variant<Created, Updated, Failed, SkippedNotASheet, SkippedSheetDeleted>;
  /// By the sheet's id.
  using Outcomes = std::map<std::string, Outcome>;

  LedgerlyPusher(LedgerlyQueries queries, LedgerlyPushClient client, CurrentUser currentUserID, Log log,
                 std::shared_ptr<SyncJournal> journal, Sleeper sleep = sleepFor);

  /// The push loop: a pass at once and one after each interval. It lives through every
  /// failure of a pass and ends when it is cancelled. One loop at a time.
  Task<> runForever(std::chrono::seconds interval);

  /// One pass over the sheets of whoever is signed in, the oldest edit first, one
  /// after another. Of a sheet that fails the outcome tells; only cancellation throws.
  Task<Outcomes> runOnce();

 private:
  struct Pending {
    std::int64_t count = 0;
    /// The owner's sheets, in the order of their edits; those to be pushed are among them.
    std::vector<std::string> ids;
  };
  using Client = std::shared_ptr<const LedgerlyPushClient>;

  Pending pending(const std::string& owner) const;
  Client clientFor(const std::string& owner) const;
  Task<std::optional<Outcome>> attempt(std::string id, std::string owner, Client client) const;
  Task<Outcome> push(LedgerlySheetRow row, Client client) const;
  Task<Outcome> create(std::string id, std::string title, JSONMap sheet, Date at, Client client) const;
  Task<Outcome> update(std::string id, std::int64_t remoteID, std::string title, JSONMap sheet, Date at,
                       Client client) const;

  const LedgerlyQueries queries_;
  const LedgerlyPushClient client_;
  const CurrentUser currentUserID_;
  const Log log_;
  const std::shared_ptr<SyncJournal> journal_;
  const Sleeper sleep_;
};

}  // namespace vorlane
