#include "store/ScenewardCheckpointQueue.h"

#include "base/Identifiers.h"
#include "store/ScenewardID.h"
#include "store/ScenewardTombstones.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace vorlane {
namespace {

using Request = ScenewardCheckpointRequest;
using QueueError = Request::QueueError;
using enum QueueError::Kind;

bool isCancelled(Database& database, const Request& request) {
  return ScenewardTombstones::isProjectCancelled(database, request.ownerID, request.projectID) ||
         ScenewardTombstones::isOperationCancelled(database, request.ownerID, request.operationID);
}

void requireOwner(Database& database, const std::string& ownerID) {
  if (!ScenewardTombstones::isOwnerDeleted(database, ownerID)) return;
  throw QueueError(invalidRequest, "the saves of this owner were erased for good");
}

void requireNotTakenBack(Database& database, const Request& request) {
  requireOwner(database, request.ownerID);
  if (!isCancelled(database, request)) return;
  throw QueueError(invalidRequest, fmt::format("the save {} or its project {} was cancelled",
                                               request.operationID, request.projectID));
}

/// Dates are kept in milliseconds, and two saves of one millisecond must keep their order;
/// so must two between which the clock was set back.
Date creationDate(Database& database, const std::string& ownerID, Date present) {
  const auto newest = database.fetchOne<std::optional<std::string>>(
      "SELECT max(created_at) FROM sceneward_checkpoint_queue WHERE owner_id=?", ownerID);
  const auto date = dateFromStorage(newest.value_or(std::nullopt).value_or(""));
  return date ? std::max(present, *date + std::chrono::milliseconds(1)) : present;
}

void insert(Database& database, const Request& request, Date present) {
  requireNotTakenBack(database, request);
  const auto known = database.fetchOne<std::string>(
      "SELECT payload_hash FROM sceneward_checkpoint_queue WHERE owner_id=? AND operation_id=?",
      request.ownerID, request.operationID);
  if (known == request.payloadHash) return;
  if (known) {
    throw QueueError(conflictingOperation,
                     fmt::format("the operation {} was queued with another payload", request.operationID));
  }
  const auto stored = database.fetchCount(
      "SELECT coalesce(sum(length(payload)),0) FROM sceneward_checkpoint_queue WHERE owner_id=?",
      request.ownerID);
  if (stored + static_cast<std::int64_t>(request.payload.size()) > ScenewardCheckpointQueue::quota) {
    throw QueueError(storageQuota, fmt::format("with {} bytes more the saves of this owner would exceed {}",
                                               request.payload.size(), ScenewardCheckpointQueue::quota));
  }
  database.execute(
      "INSERT INTO sceneward_checkpoint_queue "
      "(operation_id,owner_id,project_id,payload,payload_hash,created_at) VALUES (?,?,?,?,?,?)",
      request.operationID, request.ownerID, request.projectID, Blob{request.payload}, request.payloadHash,
      creationDate(database, request.ownerID, present));
}

Task<Request> enqueued(std::shared_ptr<AgentStore> store, Clock clock, std::string ownerID,
                       std::string projectID, std::string payload) {
  auto request = Request::build(std::move(ownerID), projectID, std::move(payload));
  auto work = [request = std::move(request), clock = std::move(clock)](Database& database) mutable {
    insert(database, request, clock());
    std::string().swap(request.payload);  // an assignment would keep the memory
    return std::move(request);
  };
  co_return co_await store->dbWriter().writeAsync(std::move(work));
}

Task<> acknowledged(std::shared_ptr<AgentStore> store, Request request, std::string receipt) {
  request.validateReceipt(receipt);
  auto work = [request = std::move(request), receipt = std::move(receipt)](Database& database) {
    requireNotTakenBack(database, request);
    database.execute(
        "UPDATE sceneward_checkpoint_queue SET status='acknowledged',receipt=? WHERE owner_id=? AND "
        "operation_id=? AND payload_hash=?",
        Blob{receipt}, request.ownerID, request.operationID, request.payloadHash);
  };
  co_await store->dbWriter().writeAsync(std::move(work));
}

std::vector<std::string> canonicalOperations(std::vector<std::string> operationIDs) {
  if (operationIDs.size() > ScenewardCheckpointQueue::maximumCancelled) {
    throw QueueError(invalidRequest, fmt::format("one cancellation names at most {} operations",
                                                 ScenewardCheckpointQueue::maximumCancelled));
  }
  for (auto& id : operationIDs) {
    auto canonical = canonicalUUID(id);
    if (!canonical) throw QueueError(invalidRequest, fmt::format("the operation id \"{}\" is no UUID", id));
    id = std::move(*canonical);
  }
  return operationIDs;
}

void cancel(Database& database, const std::string& ownerID, const std::string& projectID,
            const std::vector<std::string>& operationIDs) {
  const auto owner = ScenewardTombstones::ownerHash(ownerID);
  database.execute(
      "INSERT INTO sceneward_cancelled_projects(owner_hash,project_id) VALUES (?,?) ON "
      "CONFLICT(owner_hash,project_id) DO UPDATE SET restored_at=NULL",
      owner, projectID);
  database.execute(
      "INSERT OR IGNORE INTO sceneward_cancelled_operations(owner_hash,operation_id) SELECT ?,operation_id "
      "FROM sceneward_checkpoint_queue WHERE owner_id=? AND project_id=?",
      owner, ownerID, projectID);
  for (const auto& operationID : operationIDs) {
    database.execute(
        "INSERT OR IGNORE INTO sceneward_cancelled_operations(owner_hash,operation_id) VALUES (?,?)", owner,
        operationID);
  }
  database.execute("DELETE FROM sceneward_checkpoint_queue WHERE owner_id=? AND project_id=?", ownerID,
                   projectID);
}

Task<> cancelled(std::shared_ptr<AgentStore> store, std::string ownerID, std::string projectID,
                 std::vector<std::string> operationIDs) {
  operationIDs = canonicalOperations(std::move(operationIDs));
  auto work = [ownerID = std::move(ownerID), projectID = ScenewardID::canonical(projectID),
               operationIDs = std::move(operationIDs)](Database& database) {
    cancel(database, ownerID, projectID, operationIDs);
  };
  co_await store->dbWriter().writeAsync(std::move(work));
}

[[noreturn]] void failDamaged(std::string_view operationID) {
  throw QueueError(invalidRequest,
                   fmt::format("the stored payload of the operation {} is damaged", operationID));
}

/// Checks a stored save where the query has it. Throws QueueError over a damaged one.
Request verify(const Row& row, const std::string& ownerID) {
  const auto payload = row.get<Blob>("payload").bytes;
  auto hash = Request::digest(payload);
  if (hash != row.get<std::string_view>("payload_hash")) {
    failDamaged(row.get<std::string_view>("operation_id"));
  }
  auto request = Request::read(ownerID, row.get<std::string_view>("project_id"), payload);
  // What the cloud answers to the payload's operation would mark another row, or none.
  if (request.operationID != row.get<std::string_view>("operation_id")) {
    throw QueueError(invalidRequest,
                     fmt::format("the stored payload of the operation {} is that of {}",
                                 row.get<std::string_view>("operation_id"), request.operationID));
  }
  request.payloadHash = std::move(hash);
  return request;
}

}  // namespace

Task<Request> ScenewardCheckpointQueue::enqueue(std::string ownerID, std::string projectID,
                                                std::string payload) const {
  return enqueued(store_, clock_, std::move(ownerID), std::move(projectID), std::move(payload));
}

std::vector<Request> ScenewardCheckpointQueue::pending(const std::string& ownerID) const {
  Verified verified;
  return pending(ownerID, verified);
}

std::vector<Request> ScenewardCheckpointQueue::pending(const std::string& ownerID, Verified& verified) const {
  return store_->dbWriter().read([&](Database& database) {
    std::vector<Request> kept;
    if (ScenewardTombstones::isOwnerDeleted(database, ownerID)) return kept;
    // SQLite reads every column that is asked for, so that the payloads of known saves are not.
    const RowVisitor keepFirst = [&](const Row& waiting) {
      const auto operationID = waiting.at<std::string>(0);
      auto known = verified.find(operationID);
      const bool isNew = known == verified.end();
      if (!isNew && (!kept.empty() || isCancelled(database, known->second))) return true;
      const RowVisitor readWhole = [&](const Row& row) {
        if (isNew) known = verified.emplace(operationID, verify(row, ownerID)).first;
        if (!kept.empty() || (isNew && isCancelled(database, known->second))) return false;
        auto& request = kept.emplace_back(known->second);
        request.payload = row.get<Blob>("payload").bytes;
        if (!isNew && Request::digest(request.payload) != request.payloadHash) failDamaged(operationID);
        return false;
      };
      database.forEachRow("SELECT * FROM sceneward_checkpoint_queue WHERE owner_id=? AND operation_id=?",
                          readWhole, ownerID, operationID);
      return true;
    };
    database.forEachRow(
        "SELECT operation_id FROM sceneward_checkpoint_queue WHERE owner_id=? AND status='pending' ORDER BY "
        "created_at",
        keepFirst, ownerID);
    return kept;
  });
}

Task<> ScenewardCheckpointQueue::acknowledge(Request request, std::string receipt) const {
  return acknowledged(store_, std::move(request), std::move(receipt));
}

Task<> ScenewardCheckpointQueue::block(Request request) const {
  return store_->dbWriter().writeAsync([ownerID = std::move(request.ownerID),
                                        operationID = std::move(request.operationID)](Database& database) {
    database.execute(
        "UPDATE sceneward_checkpoint_queue SET status='blocked' WHERE owner_id=? AND operation_id=? AND "
        "status='pending'",
        ownerID, operationID);
  });
}

bool ScenewardCheckpointQueue::isProjectCancelled(const std::string& ownerID,
                                                  const std::string& projectID) const {
  return store_->dbWriter().read([&](Database& database) {
    return ScenewardTombstones::isOwnerDeleted(database, ownerID) ||
           ScenewardTombstones::isProjectCancelled(database, ownerID, ScenewardID::canonical(projectID));
  });
}

Task<> ScenewardCheckpointQueue::cancelProject(std::string ownerID, std::string projectID,
                                               std::vector<std::string> operationIDs) const {
  return cancelled(store_, std::move(ownerID), std::move(projectID), std::move(operationIDs));
}

Task<> ScenewardCheckpointQueue::restoreProject(std::string ownerID, std::string projectID) const {
  return store_->dbWriter().writeAsync([clock = clock_, ownerID = std::move(ownerID),
                                        projectID = ScenewardID::canonical(projectID)](Database& database) {
    requireOwner(database, ownerID);
    database.execute(
        "UPDATE sceneward_cancelled_projects SET restored_at=? WHERE owner_hash=? AND project_id=?", clock(),
        ScenewardTombstones::ownerHash(ownerID), projectID);
  });
}

Task<> ScenewardCheckpointQueue::erase(std::string ownerID) const {
  return store_->dbWriter().writeAsync([clock = clock_, ownerID = std::move(ownerID)](Database& database) {
    database.execute(
        "INSERT OR IGNORE INTO sceneward_checkpoint_deleted_owners(owner_id,deleted_at) VALUES (?,?)",
        ScenewardTombstones::ownerHash(ownerID), clock());
    database.execute("DELETE FROM sceneward_checkpoint_queue WHERE owner_id=?", ownerID);
  });
}

std::vector<ScenewardCheckpointQueue::Entry> ScenewardCheckpointQueue::entries(
    const std::string& ownerID) const {
  return store_->dbWriter().read([&](Database& database) {
    std::vector<Entry> entries;
    const RowVisitor add = [&](const Row& row) {
      entries.push_back({row.at<std::string>(0), row.at<std::string>(1), row.at<std::string>(2),
                         row.at<std::int64_t>(3), row.at<std::string>(4)});
      return true;
    };
    // The condition that all rows meet leads to the index. Status and date lie behind the
    // payload in a row, which would else be read through to its end.
    database.forEachRow(
        "SELECT operation_id, project_id, status, length(payload), created_at FROM "
        "sceneward_checkpoint_queue WHERE owner_id=? AND status>='' ORDER BY created_at",
        add, ownerID);
    return entries;
  });
}

ScenewardCheckpointQueue::Counts ScenewardCheckpointQueue::counts(const std::string& ownerID) const {
  return store_->dbWriter().read([&](Database& database) {
    const auto rows = [&](std::string_view status) {
      return database.fetchCount(
          "SELECT COUNT(*) FROM sceneward_checkpoint_queue WHERE owner_id=? AND status=?", ownerID, status);
    };
    return Counts{rows("pending"), rows("blocked")};
  });
}

}  // namespace vorlane
