#include "base/Date.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorlane {
namespace {

using namespace std::chrono;

Date at(year_month_day day, microseconds time) {
  return sys_days(day) + time;
}

const Date sample = at(2026y / March / 4, 5h + 6min + 7s + 891234us);

TEST(Dates, AreWrittenRoundedDown) {
  EXPECT_EQ(storageText(sample), "2026-03-04 05:06:07.891");
  EXPECT_EQ(iso8601Text(sample), "2026-03-04T05:06:07Z");
  const Date beforeTheEpoch = Date(-1us);
  EXPECT_EQ(storageText(beforeTheEpoch), "1969-12-31 23:59:59.999");
  EXPECT_EQ(iso8601Text(beforeTheEpoch), "1969-12-31T23:59:59Z");
  for (const auto date : {sample, beforeTheEpoch, Date(), Date(999us)}) {
    EXPECT_EQ(dateFromStorage(storageText(date)), storageRounded(date));
  }
}

TEST(Dates, AreReadInTheirFormsAndNoOther) {
  const auto midnight = at(2024y / February / 29, 0us);
  EXPECT_EQ(dateFromStorage("2024-02-29 00:00"), midnight);
  EXPECT_EQ(dateFromStorage("2024-02-29 00:00:00.1234569"), midnight + 123456us);
  EXPECT_EQ(dateFromStorage("2024-02-29 23:59:60"), midnight + 24h);
  for (const char* other :
       {"2023-02-29 00:00:00", "2024-13-01 00:00:00", "2024-02-29 24:00:00", "2024-02-29 00:60:00",
        "2024-02-29T00:00:00", "2024-02-29 00:00:00.", "2024-02-29 00:00.5", "2024-02-29 00:00:00Z",
        " 2024-02-29 00:00:00", "2024-2-29 00:00:00", "2024-02-29", "-024-02-29 00:00:00", ""}) {
    EXPECT_EQ(dateFromStorage(other), std::nullopt) << other;
  }
  EXPECT_EQ(dateFromISO8601("2024-02-29T01:30:00+01:30"), midnight);
  EXPECT_EQ(dateFromISO8601("2024-02-28T23:00:00-0100"), midnight);
  EXPECT_EQ(dateFromISO8601("2024-02-29T00:00:00.250Z"), midnight + 250ms);
  for (const char* other : {"2024-02-29T00:00:00", "2024-02-29 00:00:00Z", "2024-02-29T00:00Z",
                            "2024-02-29T00:00:00+1", "2024-02-29T00:00:00+24:00", "2024-02-29T00:00:00Z ",
                            "2024-02-29T00:00:00.Z", "2024-02-30T00:00:00Z"}) {
    EXPECT_EQ(dateFromISO8601(other), std::nullopt) << other;
  }
}

TEST(Dates, CountSecondsSince2001BothWaysAndClampWhatIsBeyond) {
  EXPECT_EQ(dateFromSecondsSince2001(1.5), at(2001y / January / 1, 1500ms));
  EXPECT_EQ(dateFromSecondsSince2001(secondsSince2001(sample)), sample);
  EXPECT_EQ(iso8601Text(*dateFromSecondsSince2001(1e300)).substr(0, 4), "9999");
  EXPECT_EQ(iso8601Text(*dateFromSecondsSince2001(-HUGE_VAL)).substr(0, 4), "0001");
  EXPECT_EQ(dateFromSecondsSince2001(std::nan("")), std::nullopt);
}

}  // namespace
}  // namespace vorlane
