#pragma once

#include "base/Date.h"
#include "base/Text.h"
#include "store/Row.h"

#include <optional>
#include <string>

namespace vorlane {

/// What the cloud lacks of a row.
enum class PushState {
  clean,    ///< nothing
  pending,  ///< an edit, which it has to be sent
  blocked,  ///< an edit, which it has refused for good
};

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
  /// An edit after the refusal is sent again.
  template <class Record>
  static PushState pushState(const Record& record) {
    if (!isDirty(record)) return PushState::clean;
    const bool refused = record.pushBlockedAt && record.updatedAt <= *record.pushBlockedAt;
    return refused ? PushState::blocked : PushState::pending;
  }
};

}  // namespace vorlane
