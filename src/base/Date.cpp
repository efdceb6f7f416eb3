#include "base/Date.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vorlane {
namespace {

using namespace std::chrono;

constexpr Date epoch2001 = sys_days(year(2001) / January / 1);

struct Fields {
  year_month_day day;
  hh_mm_ss<microseconds> time;
};

Fields split(Date date) {
  const auto day = floor<days>(date);
  return {year_month_day(day), hh_mm_ss<microseconds>(date - day)};
}

/// A cursor over the fixed-width fields of a date's text.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  std::optional<int> digits(std::size_t count) {
    if (rest_.size() < count) return std::nullopt;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (rest_[i] < '0' || rest_[i] > '9') return std::nullopt;
      value = value * 10 + (rest_[i] - '0');
    }
    rest_.remove_prefix(count);
    return value;
  }

  bool take(char c) {
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  /// One digit or more, as a fraction of a second; those beyond microseconds are dropped.
  std::optional<microseconds> fraction() {
    long value = 0;
    int count = 0;
    while (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
      if (count < 6) value = value * 10 + (rest_.front() - '0');
      ++count;
      rest_.remove_prefix(1);
    }
    if (count == 0) return std::nullopt;
    for (int i = count; i < 6; ++i) value *= 10;
    return microseconds(value);
  }

  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

std::optional<sys_days> readDay(Reader& in) {
  const auto y = in.digits(4);
  if (!y || !in.take('-')) return std::nullopt;
  const auto m = in.digits(2);
  if (!m || !in.take('-')) return std::nullopt;
  const auto d = in.digits(2);
  if (!d) return std::nullopt;
  const year_month_day ymd(year(*y), month(static_cast<unsigned>(*m)), day(static_cast<unsigned>(*d)));
  if (!ymd.ok()) return std::nullopt;
  return sys_days(ymd);
}

/// "HH:mm", then ":ss" which may be missing when `secondsOptional`, and a fraction if there is one.
std::optional<microseconds> readTime(Reader& in, bool secondsOptional) {
  const auto h = in.digits(2);
  if (!h || *h > 23 || !in.take(':')) return std::nullopt;
  const auto m = in.digits(2);
  if (!m || *m > 59) return std::nullopt;
  microseconds time = hours(*h) + minutes(*m);
  if (in.take(':')) {
    const auto s = in.digits(2);
    if (!s || *s > 60) return std::nullopt;  // 60: a leap second
    time += seconds(*s);
  } else {
    // Without seconds there is no fraction of one either.
    return secondsOptional ? std::optional(time) : std::nullopt;
  }
  if (!in.take('.')) return time;
  const auto fraction = in.fraction();
  return fraction ? std::optional(time + *fraction) : std::nullopt;
}

std::optional<minutes> readZone(Reader& in) {
  if (in.take('Z') || in.take('z')) return minutes(0);
  const bool east = in.take('+');
  if (!east && !in.take('-')) return std::nullopt;
  const auto h = in.digits(2);
  if (!h || *h > 23) return std::nullopt;
  in.take(':');
  const auto m = in.digits(2);
  if (!m || *m > 59) return std::nullopt;
  const minutes offset = hours(*h) + minutes(*m);
  return east ? offset : -offset;
}

// Lists carry a date a row, so the digits are set in place: a formatting library
// cost a twentieth of a small call's time here.

void putDigits(std::string& text, std::size_t at, std::size_t count, unsigned value) {
  for (std::size_t i = count; i-- > 0; value /= 10) text[at + i] = static_cast<char>('0' + value % 10);
}

/// The first 19 characters of both forms. The year must have four digits.
void putSeconds(std::string& text, Date date) {
  const auto [day, time] = split(date);
  putDigits(text, 0, 4, static_cast<unsigned>(int(day.year())));
  putDigits(text, 5, 2, unsigned(day.month()));
  putDigits(text, 8, 2, unsigned(day.day()));
  putDigits(text, 11, 2, static_cast<unsigned>(time.hours().count()));
  putDigits(text, 14, 2, static_cast<unsigned>(time.minutes().count()));
  putDigits(text, 17, 2, static_cast<unsigned>(time.seconds().count()));
}

}  // namespace

Date now() {
  return time_point_cast<microseconds>(system_clock::now());
}

std::string storageText(Date date) {
  const Date rounded = storageRounded(date);
  const auto thousandths = duration_cast<milliseconds>(rounded - floor<seconds>(rounded)).count();
  std::string text = "0000-00-00 00:00:00.000";
  putSeconds(text, rounded);
  putDigits(text, 20, 3, static_cast<unsigned>(thousandths));
  return text;
}

std::optional<Date> dateFromStorage(std::string_view text) {
  Reader in(text);
  const auto day = readDay(in);
  if (!day || !in.take(' ')) return std::nullopt;
  const auto time = readTime(in, true);
  if (!time || !in.atEnd()) return std::nullopt;
  return *day + *time;
}

Date storageRounded(Date date) {
  // What lies beyond the four digits of a year would not be read back.
  constexpr Date first = sys_days(year(1) / January / 1);
  constexpr Date last = sys_days(year(10000) / January / 1) - milliseconds(1);
  return floor<milliseconds>(std::clamp(date, first, last));
}

std::string iso8601Text(Date date) {
  std::string text = "0000-00-00T00:00:00Z";
  putSeconds(text, storageRounded(date));
  return text;
}

std::optional<Date> dateFromISO8601(std::string_view text) {
  Reader in(text);
  const auto day = readDay(in);
  if (!day || !(in.take('T') || in.take('t'))) return std::nullopt;
  const auto time = readTime(in, false);
  if (!time) return std::nullopt;
  const auto zone = readZone(in);
  if (!zone || !in.atEnd()) return std::nullopt;
  return *day + *time - *zone;
}

double secondsSince2001(Date date) {
  return duration<double>(date - epoch2001).count();
}

std::optional<Date> dateFromSecondsSince2001(double seconds) {
  if (std::isnan(seconds)) return std::nullopt;
  // The years 0001 to 9999: what both text forms can write.
  static const double low = secondsSince2001(sys_days(year(1) / January / 1));
  static const double high = secondsSince2001(sys_days(year(9999) / December / 31));
  const double clamped = std::fmin(std::fmax(seconds, low), high);
  return epoch2001 + microseconds(std::llround(clamped * 1e6));
}

double secondsSince1970(Date date) {
  return duration<double>(date.time_since_epoch()).count();
}

}  // namespace vorlane
