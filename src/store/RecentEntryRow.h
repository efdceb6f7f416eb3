#pragma once

#include "base/Date.h"
#include "store/Row.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// One line of the list of what a person opened last: a pointer to a sheet or a
/// project, which need not be on this machine.
struct RecentEntryRow {
  /// Absent until the row is stored.
  std::optional<std::int64_t> rowid = std::nullopt;
  std::string userID;
  /// "ledgerly" or "sceneward"; other programs may have written something else.
  std::string app;
  std::string entityID;
  Date openedAt;

  static constexpr std::string_view table = "recents";
  static constexpr std::array<std::string_view, 5> columns{"rowid", "user_id", "app", "entity_id",
                                                           "opened_at"};
  static RecentEntryRow fromRow(const Row& row);
};

}  // namespace vorlane
