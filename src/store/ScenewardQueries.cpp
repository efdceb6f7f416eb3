#include "store/ScenewardQueries.h"

#include "base/Identifiers.h"
#include "store/ScenewardTombstones.h"

namespace vorlane {

const DocumentTableKind ScenewardQueries::kind{
    .table = ScenewardProjectRow::table, .remoteColumn = "remote_version", .scope = &StoreScope::sceneward};

DomainFailure ScenewardQueries::sceneNotFound(const std::string& id) {
  return {"sceneward", 404, "scene " + id + " not found"};
}

std::optional<ScenewardProjectRow> ScenewardQueries::fetch(const std::string& id) const {
  return projects_.fetch<ScenewardProjectRow>(ScenewardID::canonical(id));
}

std::vector<ScenewardProjectMeta> ScenewardQueries::listMeta(const std::string& ownerID,
                                                             std::optional<std::int64_t> limit) const {
  std::string sql =
      "SELECT id, title, updated_at, synced_at FROM sceneward_projects\n"
      "WHERE owner_id = ? ORDER BY updated_at DESC";
  if (limit && *limit >= 1) sql += " LIMIT " + std::to_string(*limit);
  return projects_.pool().read(
      [&](Database& database) { return database.fetchAll<ScenewardProjectMeta>(sql, ownerID); });
}

std::vector<ScenewardProjectRow> ScenewardQueries::listProjects(const std::string& ownerID) const {
  return projects_.list<ScenewardProjectRow>(ownerID);
}

Task<> ScenewardQueries::save(ScenewardProjectRow row) const {
  row.id = ScenewardID::canonical(row.id);
  return projects_.save(std::move(row));
}

std::vector<ScenewardProjectRow> ScenewardQueries::pendingPush(const std::string& ownerID) const {
  return projects_.pendingPush<ScenewardProjectRow>(ownerID);
}

Task<> ScenewardQueries::markPushed(std::string id, std::int64_t remoteVersion, Date at) const {
  return projects_.markPushed(ScenewardID::canonical(id), remoteVersion, at);
}

Task<> ScenewardQueries::markPushBlocked(std::string id, Date at) const {
  return projects_.markPushBlocked(ScenewardID::canonical(id), at);
}

Task<> ScenewardQueries::replaceData(std::string id, std::string data) const {
  return projects_.pool().writeAsync(
      [projects = projects_, id = ScenewardID::canonical(id), data = std::move(data)](Database& database) {
        const auto owner = projects.ownerOf(database, id);
        if (!owner) return;
        database.execute("UPDATE sceneward_projects SET data = ? WHERE id = ?", data, id);
        projects.signalAfterCommit(database, *owner);
      });
}

Task<std::optional<std::string>> ScenewardQueries::forkProject(std::string id) const {
  return projects_.pool().writeAsync(
      [projects = projects_, id = ScenewardID::canonical(id),
       fork = newLowercaseUUID()](Database& database) -> std::optional<std::string> {
        const auto owner = projects.ownerOf(database, id);
        if (!owner) return std::nullopt;
        // In place, so that columns of a newer build move along.
        database.execute(
            "UPDATE sceneward_projects SET id = ?, synced_at = NULL, remote_version = NULL, "
            "push_blocked_at = NULL WHERE id = ?",
            fork, id);
        projects.signalAfterCommit(database, *owner);
        return fork;
      });
}

Task<bool> ScenewardQueries::mergeRemoteMetadata(std::string id, std::string ownerID, std::string title,
                                                 Date updatedAt) const {
  const auto date = projects_.listingDate(updatedAt);
  ScenewardProjectRow stub{.id = ScenewardID::canonical(id),
                           .ownerID = std::move(ownerID),
                           .title = std::move(title),
                           .data = "{}",
                           .createdAt = date,
                           .updatedAt = date,
                           .syncedAt = date};
  return projects_.pool().writeAsync([projects = projects_, stub = std::move(stub)](Database& database) {
    if (ScenewardTombstones::isProjectCancelled(database, stub.ownerID, stub.id)) return false;
    return projects.mergeListing(database, projects.standing(database, stub.id), stub);
  });
}

Task<> ScenewardQueries::deleteProject(std::string id) const {
  return projects_.remove(ScenewardID::canonical(id));
}

}  // namespace vorlane
