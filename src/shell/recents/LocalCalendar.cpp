#include "shell/recents/LocalCalendar.h"

#include "base/Failure.h"

#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <mutex>
#include <utility>

namespace vorlane {
namespace {

using std::chrono::floor;
using std::chrono::milliseconds;

/// ICU counts in milliseconds since 1970, as a double.
UDate icuDate(Date date) {
  return static_cast<double>(floor<milliseconds>(date).time_since_epoch().count());
}

void check(UErrorCode status) {
  if (U_FAILURE(status)) throw Failure(std::string("the calendar failed: ") + u_errorName(status));
}

std::unique_ptr<icu::TimeZone> machineZone() {
  static std::mutex lock;  // the look-up keeps its findings in globals
  const std::scoped_lock hold(lock);
  return std::unique_ptr<icu::TimeZone>(icu::TimeZone::detectHostTimeZone());
}

std::unique_ptr<icu::TimeZone> namedZone(const std::string& name) {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(name)));
  if (*zone == icu::TimeZone::getUnknown()) throw Failure("\"" + name + "\" is no time zone");
  return zone;
}

constexpr std::pair<CalendarUnit, UCalendarDateFields> unitsDown[] = {
    {CalendarUnit::year, UCAL_YEAR},         {CalendarUnit::month, UCAL_MONTH},
    {CalendarUnit::week, UCAL_WEEK_OF_YEAR}, {CalendarUnit::day, UCAL_DAY_OF_MONTH},
    {CalendarUnit::hour, UCAL_HOUR_OF_DAY},  {CalendarUnit::minute, UCAL_MINUTE},
    {CalendarUnit::second, UCAL_SECOND},
};

}  // namespace

/// Every question to a calendar changes it, so each one uses a copy.
struct LocalCalendar::Prototype {
  std::unique_ptr<icu::Calendar> calendar;

  std::unique_ptr<icu::Calendar> at(Date date) const {
    std::unique_ptr<icu::Calendar> copy(calendar->clone());
    UErrorCode status = U_ZERO_ERROR;
    copy->setTime(icuDate(date), status);
    check(status);
    return copy;
  }
};

LocalCalendar::LocalCalendar(const std::string& zone) {
  auto timeZone = zone.empty() ? machineZone() : namedZone(zone);
  UErrorCode status = U_ZERO_ERROR;
  auto calendar =
      std::make_unique<icu::GregorianCalendar>(timeZone.release(), icu::Locale::getEnglish(), status);
  check(status);
  prototype_ = std::make_shared<const Prototype>(std::move(calendar));
}

std::int64_t LocalCalendar::dayNumber(Date date) const {
  UErrorCode status = U_ZERO_ERROR;
  const auto day = prototype_->at(date)->get(UCAL_JULIAN_DAY, status);  // begins at local midnight
  check(status);
  return day;
}

Date LocalCalendar::addingDays(Date date, int days) const {
  const auto calendar = prototype_->at(date);
  UErrorCode status = U_ZERO_ERROR;
  calendar->add(UCAL_DAY_OF_MONTH, days, status);
  const auto moved = calendar->getTime(status);
  check(status);
  return Date(milliseconds(static_cast<std::int64_t>(moved))) + (date - floor<milliseconds>(date));
}

LocalCalendar::Distance LocalCalendar::distance(Date from, Date to) const {
  const auto calendar = prototype_->at(from);
  const auto target = icuDate(to);
  for (const auto& [unit, field] : unitsDown) {
    UErrorCode status = U_ZERO_ERROR;
    const int count = calendar->fieldDifference(target, field, status);
    check(status);
    if (count != 0) return {unit, count};
  }
  return {CalendarUnit::second, 0};
}

}  // namespace vorlane
