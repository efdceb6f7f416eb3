#pragma once

#include "base/Date.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vorlane {

enum class CalendarUnit { second, minute, hour, day, week, month, year };

/// Days, months and years as the person's clock shows them, in one time zone with its
/// changes to and from summer time. A small value, copied freely, usable from any thread.
class LocalCalendar {
 public:
  /// `zone` is an IANA name such as "Europe/Berlin"; empty, it is the machine's zone as
  /// set at this moment, so make one for each refresh of what is shown. Throws Failure
  /// for a name that is no zone.
  explicit LocalCalendar(const std::string& zone = "");

  /// The number of the calendar day that `date` lies in; the next day's is one more.
  std::int64_t dayNumber(Date date) const;

  /// The same time of day, `days` calendar days later, or earlier when it is negative.
  Date addingDays(Date date, int days) const;

  struct Distance {
    CalendarUnit unit;
    /// Below zero when `to` lies before `from`.
    int count;
  };
  /// The way from one date to another in whole units of the largest kind of which
  /// there is one; nought seconds when there is less than one.
  Distance distance(Date from, Date to) const;

 private:
  struct Prototype;
  std::shared_ptr<const Prototype> prototype_;
};

}  // namespace vorlane
