#pragma once

#include "shell/recents/LocalCalendar.h"
#include "shell/recents/RecentItem.h"

#include <vector>

namespace vorlane {

/// Recent items by age.
struct RecentsBucket {
  enum class Kind { today, earlierToday, thisWeek, older };

  struct Group {
    Kind bucket;
    std::vector<RecentItem> items;
  };

  /// The groups that hold something, in the order of Kind; in each the latest update
  /// first, and what was updated at once in the order in which it came.
  static std::vector<Group> group(std::vector<RecentItem> items, Date now, const LocalCalendar& calendar);
};

}  // namespace vorlane
