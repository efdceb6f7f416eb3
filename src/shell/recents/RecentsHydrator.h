#pragma once

#include "base/Date.h"
#include "shell/recents/LocalCalendar.h"
#include "shell/recents/RecentItem.h"
#include "store/LedgerlyQueries.h"
#include "store/RecentEntryRow.h"
#include "store/ScenewardQueries.h"

#include <optional>
#include <utility>

namespace vorlane {

/// Gives the entries of the list their titles, which stand with the sheets and
/// projects. A small value; make one for each refresh. It links ICU, so it lies in a
/// library apart from the store's.
class RecentsHydrator {
 public:
  RecentsHydrator(LedgerlyQueries ledgerly, ScenewardQueries sceneward, LocalCalendar calendar,
                  Clock clock = vorlane::now)
      : ledgerly_(std::move(ledgerly)),
        sceneward_(std::move(sceneward)),
        calendar_(std::move(calendar)),
        clock_(std::move(clock)) {}

  /// The entry as it is shown; nothing when its sheet or project is not on this
  /// machine, or it is of an application that is not known here. One read of the
  /// database, where it stands. Throws DatabaseFailure.
  std::optional<RecentItem> hydrate(const RecentEntryRow& row) const;

 private:
  LedgerlyQueries ledgerly_;
  ScenewardQueries sceneward_;
  LocalCalendar calendar_;
  Clock clock_;
};

}  // namespace vorlane
