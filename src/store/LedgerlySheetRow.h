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

/// One sheet as the table `ledgerly_sheets` holds it.
struct LedgerlySheetRow {
  std::string id;
  std::string ownerID;
  std::string title;
  /// The document, JSON text; "{}" when its contents are not on this machine.
  std::string data;
  Date createdAt;
  /// The last local write of title or document.
  Date updatedAt;
  /// When the cloud and this row last agreed.
  std::optional<Date> syncedAt = std::nullopt;
  /// The sheet's number in the cloud.
  std::optional<std::int64_t> remoteID = std::nullopt;
  /// When the cloud refused this sheet for good.
  std::optional<Date> pushBlockedAt = std::nullopt;

  /// Whether there is anything that the cloud does not have.
  bool isDirty() const { return DocumentRow::isDirty(*this); }

  static constexpr std::string_view table = "ledgerly_sheets";
  static constexpr std::array<std::string_view, 9> columns{"id",        "owner_id",   "title",
                                                           "data",      "created_at", "updated_at",
                                                           "synced_at", "remote_id",  "push_blocked_at"};
  static LedgerlySheetRow fromRow(const Row& row);
  /// In the order of `columns`; the texts are this row's own.
  std::array<SQLArgument, 9> arguments() const;
};

/// What a list of sheets shows, read without the documents.
struct LedgerlySheetMeta {
  std::string id;
  std::string title;
  Date updatedAt;

  static LedgerlySheetMeta fromRow(const Row& row);
};

}  // namespace vorlane
