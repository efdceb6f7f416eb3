#pragma once

#include "base/Date.h"
#include "base/Text.h"
#include "store/Row.h"

#include <optional>
#include <string>

namespace vorlane {

/// What the rows of every table of documents have in common. A Record has the members
/// that `read` fills; what else its table holds is its own affair.
struct DocumentRow {
  /// Other programs write the file, and a title that is not valid UTF-8 must not keep a
  /// person from seeing the list. The document is left to its parser.
  template <class Record>
  static Record read(const Row& row) {
    Record record;
    record.id = validUTF8(row.get<std::string>("id"));
    record.ownerID = row.get<std::string>("owner_id");
    record.title = validUTF8(row.get<std::string>("title"));
    record.data = row.get<std::string>("data");
    record.createdAt = row.get<Date>("created_at");
    record.updatedAt = row.get<Date>("updated_at");
    record.syncedAt = row.get<std::optional<Date>>("synced_at");
    record.pushBlockedAt = row.get<std::optional<Date>>("push_blocked_at");
    return record;
  }

  /// Whether there is anything that the cloud does not have.
  template <class Record>
  static bool isDirty(const Record& record) {
    return !record.syncedAt || record.updatedAt > *record.syncedAt;
  }
  /// Whether the cloud refused it and it has not been edited since.
  template <class Record>
  static bool isBlocked(const Record& record) {
    return record.pushBlockedAt && record.updatedAt <= *record.pushBlockedAt;
  }
};

}  // namespace vorlane
