#include "store/ScenewardTombstones.h"

#include "base/SHA256.h"

namespace vorlane {

namespace {

template <class... Arguments>
bool exists(Database& database, std::string_view sql, const Arguments&... arguments) {
  return database.fetchOne<std::int64_t>(sql, arguments...).value_or(1) != 0;
}

}  // namespace

std::string ScenewardTombstones::ownerHash(const std::string& ownerID) {
  return sha256Hex(ownerID);
}

bool ScenewardTombstones::isProjectCancelled(Database& database, const std::string& ownerID,
                                             const std::string& projectID) {
  return exists(database,
                "SELECT EXISTS(SELECT 1 FROM sceneward_cancelled_projects WHERE owner_hash=? AND "
                "project_id=? AND restored_at IS NULL)",
                ownerHash(ownerID), projectID);
}

bool ScenewardTombstones::isOperationCancelled(Database& database, const std::string& ownerID,
                                               const std::string& operationID) {
  return exists(database,
                "SELECT EXISTS(SELECT 1 FROM sceneward_cancelled_operations WHERE owner_hash=? AND "
                "operation_id=?)",
                ownerHash(ownerID), operationID);
}

bool ScenewardTombstones::isOwnerDeleted(Database& database, const std::string& ownerID) {
  return exists(database, "SELECT EXISTS(SELECT 1 FROM sceneward_checkpoint_deleted_owners WHERE owner_id=?)",
                ownerHash(ownerID));
}

}  // namespace vorlane
