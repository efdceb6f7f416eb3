#pragma once

#include "base/Date.h"
#include "shell/recents/LocalCalendar.h"

#include <string>

namespace vorlane {

/// How far `date` is from `now`, as a person reads it, in abbreviated English:
/// "5 min. ago", "1 day ago", "in 2 hr.". A moment of less than a second is "0 sec. ago".
std::string abbreviatedRelativeTime(Date date, Date now, const LocalCalendar& calendar);

}  // namespace vorlane
