#include "tests/sync/CloudHarness.h"

namespace vorlane {
namespace {

class RecentsSyncFetcherTest : public CloudHarness {
 protected:
  /// One pull, in which the next list of sheets is this one; the lines that it logs.
  Texts sync(const std::string& list) {
    cloud.call(&Faults::add, {.path = sheetsPath, .body = R"({"sheets":[)" + list + "]}"});
    await(RecentsSyncFetcher(fetching).syncOnce(ana));
    return log.take();
  }
  std::string recents() {
    return inFile("SELECT user_id, app, entity_id, opened_at FROM recents ORDER BY app, entity_id");
  }
  std::string rows() {
    return inFile("SELECT id, title, data, updated_at, remote_id FROM ledgerly_sheets ORDER BY id");
  }
};

TEST_F(RecentsSyncFetcherTest, FoldsBothListsIntoTheRecentsAndTheTables) {
  cloud.call(&Projects::put,
             {.id = "6f9619ff-8b86-4011-b42d-00cf4fc964ff", .owner = ana, .name = "P", .updatedAt = present});
  EXPECT_THAT(
      sync(R"({"id":42,"name":null,"title":"Forty","listName":"L","updatedAt":"2026-01-02T03:04:05.678Z"},)"
           R"({"id":"a","updatedAt":"2027-01-01T00:00:00Z","else":1},{"id":"b","updatedAt":"yester\"day"},)"
           R"({"id":-1,"name":"","title":"x","updatedAt":"2026-01-01T00:00:00Z"})"),
      ElementsAre("RecentsSyncFetcher: ledgerly b has an unreadable updatedAt \"yester\\\"day\""));
  EXPECT_EQ(recents(),
            "auth0|ana|ledgerly|-1|2026-01-01 00:00:00.000 auth0|ana|ledgerly|42|2026-01-02 03:04:05.678 "
            "auth0|ana|ledgerly|a|2027-01-01 00:00:00.000 "
            "auth0|ana|sceneward|6f9619ff-8b86-4011-b42d-00cf4fc964ff|2026-03-01 12:00:00.000");
  EXPECT_EQ(rows(),
            "-1||{}|2026-01-01 00:00:00.000|-1 42|Forty|{}|2026-01-02 03:04:05.678|42 "
            "a|a|{}|2026-03-01 12:00:00.000|-");
  EXPECT_EQ(inFile("SELECT id, title FROM sceneward_projects"), "6f9619ff-8b86-4011-b42d-00cf4fc964ff|P");
  // The same project, and one of the sheets with an earlier time and another title.
  EXPECT_THAT(sync(R"({"id":"42","listName":"L","updatedAt":"2025-01-01T00:00:00Z"})"), IsEmpty());
  EXPECT_THAT(recents(), HasSubstr("42|2025-01-01 00:00:00.000"));
  EXPECT_THAT(rows(), HasSubstr("42|L|{}|2025-01-01 00:00:00.000|42"));
}

TEST_F(RecentsSyncFetcherTest, ReadsALongListPieceByPieceAndTellsOfItsBadDatesInOneLine) {
  std::string list = R"({"id":"first","updatedAt":"2026-01-01T00:00:00Z"})";
  for (int i = 0; i < 30'000; ++i)
    list += fmt::format(R"(,{{"i\u0064":"bad {0}","name":"{0:30}","updatedAt":"yesterday"}})", i);
  // Of a key that is repeated the last value counts.
  const std::string answer =
      list + R"(],"sheets":[)" + list + R"(,{"id":"last","updatedAt":"2026-01-01T00:00:00Z"})";
  EXPECT_THAT(sync(answer), ElementsAre("RecentsSyncFetcher: ledgerly bad 0 has an unreadable updatedAt "
                                        "\"yesterday\", and so have 29999 more"));
  EXPECT_EQ(rows(), "first|first|{}|2026-01-01 00:00:00.000|- last|last|{}|2026-01-01 00:00:00.000|-");
}

TEST_F(RecentsSyncFetcherTest, EndsAListAtAWriteThatFailsAndWorksWithoutATableOrABase) {
  const std::string list =
      R"({"id":"a","updatedAt":"2026-01-01T00:00:00Z"},{"id":"b","updatedAt":"2026-01-01T00:00:00Z"})";
  inFile(
      "CREATE TRIGGER refuse BEFORE INSERT ON recents WHEN new.entity_id = 'b' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_THAT(sync(list), ElementsAre(StartsWith("RecentsSyncFetcher: ledgerly pull failed ")));
  EXPECT_EQ(recents(), "auth0|ana|ledgerly|a|2026-01-01 00:00:00.000");
  inFile("DROP TRIGGER refuse; DELETE FROM ledgerly_sheets");
  fetching.ledgerlyStore.reset();
  fetching.sceneward = cloud::API::at({}, "scenewardBase", network, bearer, account);
  EXPECT_THAT(
      sync(list),
      ElementsAre("RecentsSyncFetcher: sceneward pull failed the deployment names no \"scenewardBase\""));
  EXPECT_THAT(recents(), HasSubstr("ledgerly|b|2026-01-01 00:00:00.000"));
  EXPECT_EQ(rows(), "");
}

TEST_F(RecentsSyncFetcherTest, FilesNoListUnderSomebodyWhoDidNotAskForIt) {
  const auto valid = token;
  for (const char place : {'T', 'g'}) {
    for (const Text& next : {Text(bo), Text()}) {
      become(ana, valid);
      cloud.call(&RequestLog::clear);
      meanwhile = [&](char at) -> Task<> {
        if (at == place) become(next, valid);
        co_return;
      };
      const auto lines = sync(R"({"id":"a","updatedAt":"2026-01-01T00:00:00Z"})");
      EXPECT_THAT(lines,
                  AllOf(SizeIs(2), Each(HasSubstr(" pull failed the account changed during the request"))));
      EXPECT_THAT(cloud.call(&RequestLog::find, {}), SizeIs(place == 'T' ? 0 : 1));
      EXPECT_EQ(recents() + rows(), "");
    }
  }
  meanwhile = nullptr;
  cloud.call(&Faults::clear);
  become(ana, {});
  EXPECT_THAT(sync(""), ElementsAre(HasSubstr("status 401")))
      << "without a token the request goes out all the same";
}

}  // namespace
}  // namespace vorlane
