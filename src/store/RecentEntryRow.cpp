#include "store/RecentEntryRow.h"

#include "base/Text.h"

namespace vorlane {

// As with sheets: a text of another program that is not valid UTF-8 must not keep a
// person from seeing the rest of the list.
RecentEntryRow RecentEntryRow::fromRow(const Row& row) {
  return {.rowid = row.get<std::int64_t>("rowid"),
          .userID = row.get<std::string>("user_id"),
          .app = validUTF8(row.get<std::string>("app")),
          .entityID = validUTF8(row.get<std::string>("entity_id")),
          .openedAt = row.get<Date>("opened_at")};
}

}  // namespace vorlane
