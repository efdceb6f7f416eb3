#include "store/ScenewardProjectRow.h"

#include "base/Text.h"

namespace vorlane {

ScenewardProjectRow ScenewardProjectRow::fromRow(const Row& row) {
  auto project = DocumentRow::read<ScenewardProjectRow>(row);
  project.remoteVersion = row.get<std::optional<std::int64_t>>("remote_version");
  return project;
}

std::array<SQLArgument, 9> ScenewardProjectRow::arguments() const {
  return {id, ownerID, title, data, createdAt, updatedAt, syncedAt, remoteVersion, pushBlockedAt};
}

ScenewardProjectMeta ScenewardProjectMeta::fromRow(const Row& row) {
  return {.id = validUTF8(row.get<std::string>("id")),
          .title = validUTF8(row.get<std::string>("title")),
          .updatedAt = row.get<Date>("updated_at"),
          .syncedAt = row.get<std::optional<Date>>("synced_at")};
}

}  // namespace vorlane
