#include "shell/recents/RelativeTime.h"

#include "base/Failure.h"

#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/reldatefmt.h>
#include <unicode/udisplaycontext.h>

namespace vorlane {
namespace {

URelativeDateTimeUnit icuUnit(CalendarUnit unit) {
  switch (unit) {
    case CalendarUnit::second:
      return UDAT_REL_UNIT_SECOND;
    case CalendarUnit::minute:
      return UDAT_REL_UNIT_MINUTE;
    case CalendarUnit::hour:
      return UDAT_REL_UNIT_HOUR;
    case CalendarUnit::day:
      return UDAT_REL_UNIT_DAY;
    case CalendarUnit::week:
      return UDAT_REL_UNIT_WEEK;
    case CalendarUnit::month:
      return UDAT_REL_UNIT_MONTH;
    case CalendarUnit::year:
      return UDAT_REL_UNIT_YEAR;
  }
  return UDAT_REL_UNIT_SECOND;
}

}  // namespace

std::string abbreviatedRelativeTime(Date date, Date now, const LocalCalendar& calendar) {
  const auto [unit, count] = calendar.distance(now, date);
  UErrorCode status = U_ZERO_ERROR;
  // The narrow style would drop the points and the blank ("5m ago").
  const icu::RelativeDateTimeFormatter formatter(icu::Locale::getEnglish(), nullptr, UDAT_STYLE_SHORT,
                                                 UDISPCTX_CAPITALIZATION_NONE, status);
  icu::UnicodeString text;
  // Nought with a sign, since plain nought reads "in 0 sec.".
  formatter.formatNumeric(count == 0 ? -0.0 : count, icuUnit(unit), text, status);
  if (U_FAILURE(status)) throw Failure(std::string("a time has no text: ") + u_errorName(status));
  std::string utf8;
  return text.toUTF8String(utf8);
}

}  // namespace vorlane
