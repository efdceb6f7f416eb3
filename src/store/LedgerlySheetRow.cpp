#include "store/LedgerlySheetRow.h"

#include "base/Text.h"

namespace vorlane {

LedgerlySheetRow LedgerlySheetRow::fromRow(const Row& row) {
  auto sheet = DocumentRow::read<LedgerlySheetRow>(row);
  sheet.remoteID = row.get<std::optional<std::int64_t>>("remote_id");
  return sheet;
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
