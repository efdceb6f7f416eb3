#include "shell/recents/RecentsBucket.h"
#include "shell/recents/RecentsHydrator.h"
#include "shell/recents/RelativeTime.h"
#include "store/RecentsQueries.h"
#include "store/StoreFixture.h"

#include <stdlib.h>

#include <limits>

namespace vorlane {
namespace {

using namespace std::chrono_literals;

Date at(const char* iso8601) {
  return dateFromISO8601(iso8601).value();
}

class Recents : public StoreTest {
 protected:
  void open(const std::string& userID, const std::string& app, const std::string& entityID, int minute) {
    await(queries.record(userID, app, entityID, present + std::chrono::minutes(minute)));
  }
  /// The ids of the newest entries of "o", with their minutes.
  std::string recent(std::int64_t limit) {
    std::string ids;
    for (const auto& row : queries.recent("o", limit)) {
      const auto minutes = duration_cast<std::chrono::minutes>(row.openedAt - present).count();
      ids += row.app.substr(0, 1) + row.entityID + "@" + std::to_string(minutes) + " ";
    }
    return ids;
  }
  int changes(const std::string& user) {
    return signals->posts("com.vorlane.store.recents." + user + ".changed");
  }

  std::shared_ptr<AgentStore> store = StoreTest::open();
  std::shared_ptr<StoreNotifications> notifications =
      std::make_shared<StoreNotifications>(signals, runtime.io());
  RecentsQueries queries{store, notifications};
};

TEST_F(Recents, KeepOneRowForEachEntityOfAnApplicationAndAPerson) {
  open("o", "ledgerly", "a", 1);
  open("o", "sceneward", "a", 2);
  open("p", "ledgerly", "a", 3);
  open("o", "ledgerly", "b", 4);
  open("o", "ledgerly", "a", 5);
  EXPECT_EQ(inFile("SELECT rowid, user_id, app, entity_id, opened_at FROM recents WHERE user_id = 'p'"),
            "3|p|ledgerly|a|2026-03-01 12:03:00.000");
  using Limits = std::numeric_limits<std::int64_t>;
  for (const std::int64_t limit : {Limits::min(), std::int64_t{-1}, std::int64_t{0}})
    EXPECT_EQ(recent(limit), "");
  EXPECT_EQ(recent(2), "la@5 lb@4 ");
  EXPECT_EQ(recent(Limits::max()), "la@5 lb@4 sa@2 ");
  EXPECT_EQ(changes("o"), 4);

  await(queries.clear("o"));
  EXPECT_EQ(recent(9), "");
  EXPECT_EQ(queries.recent("p", 9).size(), 1U);
  EXPECT_EQ(changes("o"), 5);
  EXPECT_EQ(changes("p"), 1);
}

TEST_F(Recents, AreHydratedFromTheirSheetsAndProjects) {
  const LedgerlyQueries sheets = queriesOn(store);
  const ScenewardQueries projects(store, notifications);
  await(sheets.save({"7", "o", "Lenses", "{}", present, present - 5min}));
  await(projects.save({"7", "o", "Heist", "{}", present, present - 49h}));
  const RecentsHydrator hydrator(sheets, projects, LocalCalendar("UTC"), [this] { return present; });
  const auto shown = [&](const char* app, const char* id) -> std::string {
    const auto item = hydrator.hydrate({.userID = "o", .app = app, .entityID = id, .openedAt = present});
    if (!item) return "nothing";
    return item->id + "|" + (item->app == VorlaneApp::ledgerly ? "ledgerly" : "sceneward") + "|" +
           item->title + "|" + item->subtitle + "|" + storageText(item->updatedAt);
  };
  EXPECT_EQ(shown("ledgerly", "7"), "7|ledgerly|Lenses|Sheet · updated 5 min. ago|2026-03-01 11:55:00.000");
  EXPECT_EQ(shown("sceneward", "7"),
            "7|sceneward|Heist|Project · updated 2 days ago|2026-02-27 11:00:00.000");
  for (const auto& [app, id] : {std::pair("ledgerly", "8"), {"sceneward", "8"}, {"Ledgerly", "7"}, {"", "7"}})
    EXPECT_EQ(shown(app, id), "nothing") << app << id;
}

TEST(RelativeTimes, AreInTheLargestUnitOfWhichThereIsOne) {
  const auto now = at("2026-03-01T12:00:00Z");
  // Of 28 days in February 2026, and of 365 in the year before it.
  const std::chrono::milliseconds ages[] = {0ms,        999ms, 59999ms, 60s,  3599s,     1h,
                                            24h - 1s,   24h,   167h,    168h, 672h - 1s, 672h,
                                            8760h - 1s, 8760h, -2s,     -2h,  -80h};
  std::string texts;
  const LocalCalendar calendar("UTC");
  for (const auto& age : ages) texts += abbreviatedRelativeTime(now - age, now, calendar) + "|";
  EXPECT_EQ(
      texts,
      "0 sec. ago|0 sec. ago|59 sec. ago|1 min. ago|59 min. ago|1 hr. ago|23 hr. ago|1 day ago|6 days ago|"
      "1 wk. ago|3 wk. ago|1 mo. ago|11 mo. ago|1 yr. ago|in 2 sec.|in 2 hr.|in 3 days|");
  EXPECT_EQ(abbreviatedRelativeTime(at("0026-02-01T12:00:00Z"), now, calendar), "2,000 yr. ago");
  // From ten to ten is a day, also when the clock was set forward in between; in
  // autumn a day is not yet over after 24 hours.
  const std::tuple<const char*, const char*, const char*, const char*> changes[] = {
      {"Europe/Berlin", "2026-03-28T10:00:00+01:00", "2026-03-29T10:00:00+02:00", "1 day ago"},
      {"UTC", "2026-03-28T10:00:00+01:00", "2026-03-29T10:00:00+02:00", "23 hr. ago"},
      {"Europe/Berlin", "2026-10-24T10:30:00+02:00", "2026-10-25T10:00:00+01:00", "24 hr. ago"}};
  for (const auto& [zone, date, present, text] : changes)
    EXPECT_EQ(abbreviatedRelativeTime(at(date), at(present), LocalCalendar(zone)), text) << zone << date;
}

TEST(RecentsBuckets, DependOnTheDayAndTheWeekOfThePersonsZone) {
  constexpr auto today = RecentsBucket::Kind::today, earlier = RecentsBucket::Kind::earlierToday,
                 week = RecentsBucket::Kind::thisWeek, older = RecentsBucket::Kind::older;
  const std::tuple<const char*, const char*, const char*, RecentsBucket::Kind> cases[] = {
      {"UTC", "2026-03-01T12:00:00Z", "2026-03-01T10:00:00Z", today},
      {"UTC", "2026-03-01T12:00:00Z", "2026-03-01T09:59:59.999999Z", earlier},
      {"UTC", "2026-03-01T12:00:00Z", "2026-03-01T00:00:00Z", earlier},
      {"UTC", "2026-03-01T12:00:00Z", "2026-02-28T23:59:59.999999Z", week},
      {"UTC", "2026-03-01T12:00:00.0005Z", "2026-02-22T12:00:00.0005Z", week},
      {"UTC", "2026-03-01T12:00:00.0005Z", "2026-02-22T12:00:00.0004Z", older},
      // Of another machine whose clock is ahead.
      {"UTC", "2026-03-01T12:00:00Z", "2026-03-01T23:00:00Z", today},
      {"UTC", "2026-03-01T12:00:00Z", "2026-03-02T00:00:00Z", week},
      {"America/New_York", "2026-03-01T03:00:00Z", "2026-02-28T12:00:00Z", earlier},
      {"UTC", "2026-03-01T03:00:00Z", "2026-02-28T12:00:00Z", week},
      // Two hours are counted in seconds over a change of the clock, a week in days.
      {"Europe/Berlin", "2026-03-29T04:30:00+02:00", "2026-03-29T01:30:00+01:00", today},
      {"Europe/Berlin", "2026-10-25T02:30:00+01:00", "2026-10-25T01:29:00+02:00", earlier},
      {"Europe/Berlin", "2026-04-01T10:00:00+02:00", "2026-03-25T09:30:00+01:00", older},
      {"Europe/Berlin", "2026-10-28T10:00:00+01:00", "2026-10-21T10:00:00+02:00", week}};
  for (const auto& [zone, now, date, kind] : cases) {
    const auto groups = RecentsBucket::group({{.updatedAt = at(date)}}, at(now), LocalCalendar(zone));
    EXPECT_EQ(groups.at(0).bucket, kind) << zone << " " << now << " " << date;
  }
}

TEST(RecentsBuckets, ListTheNewestFirstAndEqualOnesAsTheyCame) {
  const auto now = at("2026-03-01T12:00:00Z");
  std::vector<RecentItem> items;
  for (const auto& [id, age] : {std::pair("a", 200h), {"b", 1h}, {"c", 5h}, {"d", 1h}, {"e", 0h}, {"f", 1h}})
    items.push_back({.id = id, .updatedAt = now - age});
  std::string shown;
  for (const auto& group : RecentsBucket::group(items, now, LocalCalendar("UTC"))) {
    shown += std::to_string(static_cast<int>(group.bucket)) + ":";
    for (const auto& item : group.items) shown += item.id;
    shown += " ";
  }
  EXPECT_EQ(shown, "0:ebdf 1:c 3:a ");
}

TEST(LocalCalendars, TakeTheZoneThatTheMachineHasNow) {
  const auto now = at("2026-03-01T12:00:00Z");
  for (const char* zone : {"Pacific/Kiritimati", "America/New_York"}) {
    setenv("TZ", zone, 1);
    EXPECT_EQ(LocalCalendar().dayNumber(now), LocalCalendar(zone).dayNumber(now)) << zone;
  }
  unsetenv("TZ");
  EXPECT_EQ(LocalCalendar("Pacific/Kiritimati").dayNumber(now), LocalCalendar("UTC").dayNumber(now) + 1);
  EXPECT_EQ(failureOf([] { LocalCalendar("Nowhere/Land"); }), "\"Nowhere/Land\" is no time zone");
}

}  // namespace
}  // namespace vorlane
