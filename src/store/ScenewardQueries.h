#pragma once

#include "base/Date.h"
#include "base/Failure.h"
#include "base/tasks/Task.h"
#include "store/AgentStore.h"
#include "store/DocumentQueries.h"
#include "store/ScenewardProjectRow.h"
#include "store/StoreNotifications.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorlane {

/// The one way to the table `sceneward_projects`. Every id may come in any spelling; it
/// is made canonical before it touches the table. Threads, transactions, signals and
/// failures are as DocumentTable has them.
class ScenewardQueries : public DocumentQueries<ScenewardProjectRow> {
 public:
  ScenewardQueries(std::shared_ptr<AgentStore> store, std::shared_ptr<StoreNotifications> notifications,
                   Clock clock = vorlane::now)
      : DocumentQueries(kind, std::move(store), std::move(notifications), std::move(clock)) {}

  /// DomainFailure ("sceneward", 404), "scene ID not found".
  static DomainFailure sceneNotFound(const std::string& id);

  /// The owner's projects without their scenes, the latest edit first; all of them when
  /// `limit` is absent or below 1.
  std::vector<ScenewardProjectMeta> listMeta(const std::string& ownerID,
                                             std::optional<std::int64_t> limit = std::nullopt) const;
  /// The owner's projects, the latest edit first.
  std::vector<ScenewardProjectRow> listProjects(const std::string& ownerID) const { return list(ownerID); }

  /// Sets the scene's text alone and keeps every date.
  Task<> replaceData(std::string id, std::string data) const;
  /// Moves the local work to a new identity, which the cloud has never seen. The new id,
  /// or nothing when there is no such project.
  Task<std::optional<std::string>> forkProject(std::string id) const;
  /// Writes a stub for a project of a cloud listing, or refreshes title and time of a row
  /// that has no local edits. A project that the person removed is not brought back. A
  /// time in the future counts as the present. True when the row changed.
  Task<bool> mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                 Date updatedAt) const;
  Task<> deleteProject(std::string id) const { return remove(std::move(id)); }

 private:
  static const DocumentTableKind kind;
};

}  // namespace vorlane
