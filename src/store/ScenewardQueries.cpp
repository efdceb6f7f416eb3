#include "store/ScenewardQueries.h"

#include "base/Identifiers.h"
#include "store/ScenewardID.h"
#include "store/ScenewardTombstones.h"

namespace vorlane {

const DocumentTableKind ScenewardQueries::kind{.table = ScenewardProjectRow::table,
                                               .remoteColumn = "remote_version",
                                               .scope = &StoreScope::sceneward,
                                               .storedID = &ScenewardID::canonical,
                                               .notFound = &ScenewardQueries::sceneNotFound};

DomainFailure ScenewardQueries::sceneNotFound(const std::string& id) {
  return {"sceneward", 404, "scene " + id + " not found"};
}

std::vector<ScenewardProjectMeta> ScenewardQueries::listMeta(const std::string& ownerID,
                                                             std::optional<std::int64_t> limit) const {
  std::string sql =
      "SELECT id, title, updated_at, synced_at FROM sceneward_projects\n"
      "WHERE owner_id = ? ORDER BY updated_at DESC";
  if (limit && *limit >= 1) sql += " LIMIT " + std::to_string(*limit);
  return pool().read(
      [&](Database& database) { return database.fetchAll<ScenewardProjectMeta>(sql, ownerID); });
}

Task<> ScenewardQueries::replaceData(std::string id, std::string data) const {
  return pool().writeAsync([queries = *this, id = storedID(id), data = std::move(data)](Database& database) {
    const auto owner = queries.ownerOf(database, id);
    if (!owner) return;
    database.execute("UPDATE sceneward_projects SET data = ? WHERE id = ?", data, id);
    queries.signalAfterCommit(database, *owner);
  });
}

Task<std::optional<std::string>> ScenewardQueries::forkProject(std::string id) const {
  return pool().writeAsync([queries = *this, id = storedID(id),
                            fork = newLowercaseUUID()](Database& database) -> std::optional<std::string> {
    const auto owner = queries.ownerOf(database, id);
    if (!owner) return std::nullopt;
    // In place, so that columns of a newer build move along.
    database.execute(
        "UPDATE sceneward_projects SET id = ?, synced_at = NULL, remote_version = NULL, "
        "push_blocked_at = NULL WHERE id = ?",
        fork, id);
    queries.signalAfterCommit(database, *owner);
    return fork;
  });
}

Task<bool> ScenewardQueries::mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                                 Date updatedAt) const {
  auto stub = stubOf(std::move(id), std::move(ownerID), std::move(title), updatedAt);
  return pool().writeAsync([queries = *this, stub = std::move(stub)](Database& database) {
    if (ScenewardTombstones::isProjectCancelled(database, stub.ownerID, stub.id)) return false;
    return queries.mergeListing(database, queries.status(database, stub.id), stub);
  });
}

}  // namespace vorlane
