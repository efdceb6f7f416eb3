#pragma once

#include "base/Date.h"
#include "store/Row.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// What decides whether the cloud may touch a row; the document stays where it is.
struct RowStatus {
  /// As it is stored, for use in a statement.
  std::string id;
  std::string ownerID;
  std::string title;
  Date updatedAt;
  std::optional<Date> syncedAt;
  std::optional<Date> pushBlockedAt;

  static constexpr std::array<std::string_view, 6> columns{"id",         "owner_id",  "title",
                                                           "updated_at", "synced_at", "push_blocked_at"};
  static RowStatus fromRow(const Row& row);
};

}  // namespace vorlane
