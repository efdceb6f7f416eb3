#pragma once

#include "base/Date.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/ScenewardCheckpointRequest.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {

/// Tells the agent, from whichever process, that a save waits in the queue.
inline constexpr std::string_view checkpointPendingSignal = "com.vorlane.sceneward.checkpoint-pending";

/// The outbox of explicit Cloud Saves: what the Sceneward application handed over and the
/// cloud has not yet acknowledged, with the tombstones of what was taken back. It knows no
/// network. A small value, copied freely, usable from any thread. Reads run where they
/// stand; writes are tasks, each one transaction, which is made even when its awaiter is
/// cancelled. Everything may throw DatabaseFailure beside what it names.
class ScenewardCheckpointQueue {
 public:
  using Request = ScenewardCheckpointRequest;

  /// Stored payloads of one owner, in bytes, whatever their status.
  static constexpr std::int64_t quota = std::int64_t{1} << 30;
  /// Operation ids that one cancellation may name.
  static constexpr std::size_t maximumCancelled = 100;

  /// A row of the queue without its payload.
  struct Entry {
    std::string operationID;
    std::string projectID;
    std::string status;  ///< "pending", "acknowledged" or "blocked"
    std::int64_t bytes = 0;
    std::string createdAt;  ///< as it is stored: a damaged one hides no other row
  };

  /// The saves that a reader of the queue has found sound, by their operations and without
  /// their payloads.
  using Verified = std::map<std::string, Request, std::less<>>;

  struct Counts {
    std::int64_t pending = 0;
    std::int64_t blocked = 0;
  };

  explicit ScenewardCheckpointQueue(std::shared_ptr<AgentStore> store, Clock clock = vorlane::now)
      : store_(std::move(store)), clock_(std::move(clock)) {}

  /// Stores a save. The same operation with the same payload is one operation: it succeeds
  /// again and changes nothing. Throws QueueError: `invalidRequest` (also for an owner or
  /// project that was taken back), `conflictingOperation`, `storageQuota`; JSONParseFailure.
  /// Returns the request without its payload.
  Task<Request> enqueue(std::string ownerID, std::string projectID, std::string payload) const;

  /// The oldest save that waits, if any, every waiting row having been verified: one damaged
  /// row fails the read. It hashes all their payloads and may take a second for each gigabyte.
  std::vector<Request> pending(const std::string& ownerID) const;
  /// The same for who takes one save after another: those in `verified` have been read through
  /// and are not again, but for the one that is returned, whose payload is hashed once more.
  std::vector<Request> pending(const std::string& ownerID, Verified& verified) const;

  /// The cloud took the save. Throws QueueError (`invalidReceipt`, or `invalidRequest` when the
  /// save was taken back meanwhile) and JSONParseFailure. Needs the request's ids and hashes alone.
  Task<> acknowledge(Request request, std::string receipt) const;
  /// The cloud will not take the save. Touches the row only while it is pending.
  Task<> block(Request request) const;

  bool isProjectCancelled(const std::string& ownerID, const std::string& projectID) const;
  /// Takes a project's saves back, those queued and those named, which may not have arrived
  /// yet. Throws QueueError (`invalidRequest`).
  Task<> cancelProject(std::string ownerID, std::string projectID,
                       std::vector<std::string> operationIDs) const;
  /// Lets a cancelled project be saved again, by new operations.
  Task<> restoreProject(std::string ownerID, std::string projectID) const;
  /// Removes all of the owner's saves, and refuses new ones for ever.
  Task<> erase(std::string ownerID) const;

  /// All rows of the owner, oldest first.
  std::vector<Entry> entries(const std::string& ownerID) const;
  Counts counts(const std::string& ownerID) const;

 private:
  std::shared_ptr<AgentStore> store_;
  Clock clock_;
};

}  // namespace vorlane
