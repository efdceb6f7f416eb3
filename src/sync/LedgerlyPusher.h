#pragma once

#include "auth/AccountMark.h"
#include "base/Date.h"
#include "base/ShellLog.h"
#include "base/tasks/AsyncMutex.h"
#include "base/tasks/SharedTask.h"
#include "base/tasks/Timing.h"
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

/// Carries the edits of sheets to the cloud in the background.
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

  /// `exchange` is held from an upload to its mark: whoever reads the cloud's list of
  /// sheets meanwhile would meet a sheet that no row owns up to yet.
  LedgerlyPusher(LedgerlyQueries queries, LedgerlyPushClient client, Log log,
                 std::shared_ptr<SyncJournal> journal, std::shared_ptr<AsyncMutex> exchange,
                 Sleeper sleep = sleepFor);

  /// The push loop: a pass at once and one after each interval. It lives through every
  /// failure of a pass and ends when it is cancelled. One loop at a time.
  Task<> runForever(std::chrono::seconds interval);

  /// One pass over the sheets of whoever is signed in, the oldest edit first, one
  /// after another. Of a sheet that fails the outcome tells; only cancellation throws.
  Task<Outcomes> runOnce();

 private:
  struct Upload;
  /// A sheet that is made ready while the one before it is on its way.
  using Preparation = std::shared_ptr<SharedTask<std::shared_ptr<Upload>>>;
  using Client = std::shared_ptr<const LedgerlyPushClient>;

  static std::shared_ptr<Upload> prepare(const LedgerlyQueries& queries, const std::string& id,
                                         const std::string& owner);
  Preparation prepareAhead(const Executor& executor, const std::string& id, const std::string& owner) const;
  bool isUpToDate(const std::string& id, const std::shared_ptr<Upload>& upload) const;
  Client clientFor(const AccountMark& mark) const;
  Task<std::optional<Outcome>> attempt(std::string id, std::string owner, Preparation ready,
                                       Client client) const;
  Task<std::optional<Outcome>> pushPending(std::string id, std::string owner, Preparation ready,
                                           Client client) const;
  Task<Outcome> push(std::shared_ptr<Upload> upload, Client client) const;
  Task<Outcome> create(std::shared_ptr<Upload> upload, Client client) const;
  Task<Outcome> update(std::shared_ptr<Upload> upload, Client client) const;

  const LedgerlyQueries queries_;
  const LedgerlyPushClient client_;
  const Log log_;
  const std::shared_ptr<SyncJournal> journal_;
  const std::shared_ptr<AsyncMutex> exchange_;
  const Sleeper sleep_;
};

}  // namespace vorlane
