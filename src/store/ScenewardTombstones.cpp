#include "store/ScenewardTombstones.h"

#include "base/Digest.h"

namespace vorlane {

std::string ScenewardTombstones::ownerHash(const std::string& ownerID) {
  return sha256Hex(ownerID);
}

bool ScenewardTombstones::isProjectCancelled(Database& database, const std::string& ownerID,
                                             const std::string& projectID) {
  const auto exists = database.fetchOne<std::int64_t>(
      "SELECT EXISTS(SELECT 1 FROM sceneward_cancelled_projects WHERE owner_hash=? AND project_id=? AND "
      "restored_at IS NULL)",
      ownerHash(ownerID), projectID);
  return exists.value_or(1) != 0;  // in doubt it is not brought back
}

}  // namespace vorlane
