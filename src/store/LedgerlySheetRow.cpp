#include "store/LedgerlySheetRow.h"

#include "base/Text.h"

namespace vorlane {

// Other programs write this file, and a title that is not valid UTF-8 must not
// keep a person from seeing the list. The document is left to its parser.
LedgerlySheetRow LedgerlySheetRow::fromRow(const Row& row) {
  return {.id = validUTF8(row.get<std::string>("id")),
          .ownerID = row.get<std::string>("owner_id"),
          .title = validUTF8(row.get<std::string>("title")),
          .data = row.get<std::string>("data"),
          .createdAt = row.get<Date>("created_at"),
          .updatedAt = row.get<Date>("updated_at"),
          .syncedAt = row.get<std::optional<Date>>("synced_at"),
          .remoteID = row.get<std::optional<std::int64_t>>("remote_id"),
          .pushBlockedAt = row.get<std::optional<Date>>("push_blocked_at")};
}

std::array<SQLArgument, 9> LedgerlySheetRow::arguments() const {
  return {id, ownerID, title, data, createdAt, updatedAt, syncedAt, remoteID, pushBlockedAt};
}

LedgerlySheetMeta LedgerlySheetMeta::fromRow(const Row& row) {
  return {.id = validUTF8(row.get<std::string>("id")),
          .title = validUTF8(row.get<std::string>("title")),
          .updatedAt = row.get<Date>("updated_at")};
}

}  // namespace vorlane
