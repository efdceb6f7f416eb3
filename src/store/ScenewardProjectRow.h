#pragma once

#include "base/Date.h"
#include "store/DocumentRow.h"
#include "store/Row.h"
#include "store/SQLArgument.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// One project, which holds exactly one scene, as the table `sceneward_projects` has it.
struct ScenewardProjectRow {
  /// Canonical, see ScenewardID.
  std::string id;
  std::string ownerID;
  std::string title;
  /// The scene snapshot, JSON text; "{}" when its contents are not on this machine.
  std::string data;
  Date createdAt;
  /// The last local write.
  Date updatedAt;
  /// When the cloud and this row last agreed.
  std::optional<Date> syncedAt = std::nullopt;
  /// The cloud's revision of this project.
  std::optional<std::int64_t> remoteVersion = std::nullopt;
  /// When the cloud refused this project for good.
  std::optional<Date> pushBlockedAt = std::nullopt;

  static constexpr std::string_view table = "sceneward_projects";
  static constexpr std::array<std::string_view, 9> columns{"id",        "owner_id",       "title",
                                                           "data",      "created_at",     "updated_at",
                                                           "synced_at", "remote_version", "push_blocked_at"};
  static ScenewardProjectRow fromRow(const Row& row);
  /// In the order of `columns`; the texts are this row's own.
  std::array<SQLArgument, 9> arguments() const;
};

/// What a list of projects shows, read without the scenes.
struct ScenewardProjectMeta {
  std::string id;
  std::string title;
  Date updatedAt;
  std::optional<Date> syncedAt;

  static ScenewardProjectMeta fromRow(const Row& row);
};

}  // namespace vorlane
