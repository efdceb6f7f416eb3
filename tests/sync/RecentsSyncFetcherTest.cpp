#include "sync/RecentsSyncFetcher.h"

#include "store/StoreFixture.h"
#include "support/LogRecorder.h"

#include <fmt/format.h>

#include <functional>
#include <map>
#include <vector>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using User = std::optional<std::string>;

class RecentsSyncFetcherTest : public StoreTest {
 protected:
  static constexpr char sheetsPath[] = "https://ledgerly.test/api/user/sheets";
  static constexpr char projectsPath[] = "https://sceneward.test/api/v1/projects";

  std::vector<std::string> sync() {
    await(fetcher.syncOnce("o"));
    return log.take();
  }
  std::string recents() {
    return inFile("SELECT user_id, app, entity_id, opened_at FROM recents ORDER BY app, entity_id");
  }
  std::string sheetRows() {
    return inFile("SELECT id, title, data, updated_at, remote_id FROM ledgerly_sheets ORDER BY id");
  }
  int posts(const std::string& scope) { return signals->posts("com.vorlane.store." + scope + ".o.changed"); }

  std::shared_ptr<AgentStore> store = open();
  testing::LogRecorder log;
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>([this] { return present; });
  User user = "o", token = "t";
  std::function<void()> inBearer = [] {}, inRequest = [] {};
  /// By address.
  std::map<std::string, URLResponse> answers{{sheetsPath, {.status = 200, .body = R"({"sheets":[]})"}},
                                             {projectsPath, {.status = 200, .body = R"({"projects":[]})"}}};
  std::vector<URLRequest> requests;
  Sleeper sleep = sleepFor;
  RecentsSyncFetcher::Settings settings{
      .recents = {store, std::make_shared<StoreNotifications>(signals, runtime.io())},
      .ledgerlyStore = queriesOn(store),
      .scenewardStore = queriesOn<ScenewardQueries>(store),
      .currentUserID = [this] { return user; },
      .bearer = [this]() -> Task<User> {
        inBearer();
        co_return token;
      },
      .runner = [this](URLRequest request) -> Task<URLResponse> {
        requests.push_back(request);
        inRequest();
        if (!answers.contains(request.url)) throw TransportFailure(7, "no way");
        co_return answers.at(request.url);
      },
      .ledgerlyBase = "https://ledgerly.test",
      .scenewardBase = "https://sceneward.test/",
      .log = log.log(),
      .journal = journal,
      .exchange = std::make_shared<AsyncMutex>(),
      .sleep = [this](std::chrono::milliseconds interval) { return sleep(interval); }};
  RecentsSyncFetcher fetcher{settings};
};

TEST_F(RecentsSyncFetcherTest, FoldsBothListsIntoTheRecentsAndTheTables) {
  answers[sheetsPath].body =
      R"({"success":true,"sheets":[{"id":42,"name":null,"title":"Forty","listName":"L","updatedAt":)"
      R"("2026-01-02T03:04:05.678Z"},{"id":"a","updatedAt":"2027-01-01T00:00:00Z","else":1},)"
      R"({"id":"b","updatedAt":"yester\"day"},{"id":-1,"name":"","title":"x","updatedAt":"2026-01-01T00:00:00Z"}]})";
  answers[projectsPath].body =
      R"({"projects":[{"id":"6F9619FF-8B86-4011-B42D-00CF4FC964FF","name":"P","updatedAt":"2026-02-01T00:00:00Z"}]})";
  EXPECT_THAT(sync(),
              ElementsAre("RecentsSyncFetcher: ledgerly b has an unreadable updatedAt \"yester\\\"day\""));
  EXPECT_EQ(recents(),
            "o|ledgerly|-1|2026-01-01 00:00:00.000 o|ledgerly|42|2026-01-02 03:04:05.678 "
            "o|ledgerly|a|2027-01-01 00:00:00.000 "
            "o|sceneward|6F9619FF-8B86-4011-B42D-00CF4FC964FF|2026-02-01 00:00:00.000");
  EXPECT_EQ(sheetRows(),
            "-1||{}|2026-01-01 00:00:00.000|-1 42|Forty|{}|2026-01-02 03:04:05.678|42 "
            "a|a|{}|2026-03-01 12:00:00.000|-");
  EXPECT_EQ(inFile("SELECT id, title FROM sceneward_projects"), "6f9619ff-8b86-4011-b42d-00cf4fc964ff|P");
  EXPECT_EQ(std::tuple(posts("recents"), posts("ledgerly"), posts("sceneward")), std::tuple(4, 3, 1));
  EXPECT_EQ(writeJSON(journal->report("o").at("recents")),
            R"({"lastError":null,"lastSuccess":"2026-03-01T12:00:00Z"})");
  for (const auto& request : requests) {
    EXPECT_EQ(request.method, "GET");
    EXPECT_THAT(request.headers, ElementsAre(std::pair("Authorization", "Bearer t")));
  }
  // The same once more, but for one sheet of an earlier time and another title.
  answers[sheetsPath].body = R"({"sheets":[{"id":"42","listName":"L","updatedAt":"2025-01-01T00:00:00Z"}]})";
  EXPECT_THAT(sync(), IsEmpty());
  EXPECT_THAT(recents(), HasSubstr("42|2025-01-01 00:00:00.000"));
  EXPECT_THAT(sheetRows(), HasSubstr("42|L|{}|2025-01-01 00:00:00.000|42"));
  EXPECT_EQ(std::tuple(posts("recents"), posts("ledgerly"), posts("sceneward")), std::tuple(6, 4, 1));
}

TEST_F(RecentsSyncFetcherTest, ReadsAListWholeOrSaysInOneLineWhyNot) {
  // The entry after a good one; where there is none, another answer.
  const std::tuple<const char*, URLResponse, const char*> cases[] = {
      {"1", {}, "an entry of \"sheets\" is no object"},
      {R"({"updatedAt":"2026-01-01T00:00:00Z"})", {}, "an entry has no \"id\""},
      {R"({"id":"b"})", {}, "an entry has no \"updatedAt\""},
      {R"({"id":"b","updatedAt":1})", {}, "\"updatedAt\" of an entry is no string"},
      {R"({"id":"b","name":"n","listName":1,"updatedAt":""})", {}, "\"listName\" of an entry is no string"},
      {R"({"id":4.0,"updatedAt":""})", {}, "id is neither String nor Int"},
      {R"({"id":18446744073709551615,"updatedAt":""})", {}, "id is neither String nor Int"},
      {"", {200, {}, {}, "{}"}, "the answer has no list \"sheets\""},
      {"", {500, {}, {}, "oh\nno"}, R"(GET /api/user/sheets was answered with status 500 and "oh\nno")"},
  };
  answers[projectsPath].body = R"({"projects":[{"id":"p","updatedAt":"2026-02-01T00:00:00Z"}]})";
  for (const auto& [entry, other, error] : cases) {
    SCOPED_TRACE(error);
    constexpr auto list = R"({{"sheets":[{{"id":"a","updatedAt":"2026-01-01T00:00:00Z"}},{}]}})";
    answers[sheetsPath] = other.status != 0 ? other : URLResponse{200, {}, {}, fmt::format(list, entry)};
    EXPECT_THAT(sync(),
                ElementsAre(HasSubstr(std::string("RecentsSyncFetcher: ledgerly pull failed ") + error)));
    EXPECT_EQ(recents(), "o|sceneward|p|2026-02-01 00:00:00.000");
    EXPECT_THAT(writeJSON(journal->report("o").at("recents")), HasSubstr("\"lastSuccess\":null"));
  }
  for (const auto* id : {"1", "null"}) {
    answers[projectsPath].body = fmt::format(R"({{"projects":[{{"id":{},"updatedAt":""}}]}})", id);
    EXPECT_THAT(sync().back(), HasSubstr("RecentsSyncFetcher: sceneward pull failed ")) << id;
  }
  answers.clear();
  settings.ledgerlyBase.reset();
  await(RecentsSyncFetcher(settings).syncOnce("o"));
  EXPECT_THAT(log.take(),
              ElementsAre("RecentsSyncFetcher: ledgerly pull failed the deployment names no \"ledgerlyBase\"",
                          "RecentsSyncFetcher: sceneward pull failed no way"));
}

TEST_F(RecentsSyncFetcherTest, EndsAListAtAWriteThatFailsAndWorksWithoutTables) {
  answers[sheetsPath].body = R"({"sheets":[{"id":"a","updatedAt":"2026-01-01T00:00:00Z"},)"
                             R"({"id":"b","updatedAt":"2026-01-01T00:00:00Z"}]})";
  inFile(
      "CREATE TRIGGER refuse BEFORE INSERT ON recents WHEN new.entity_id = 'b' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_THAT(sync(), ElementsAre(HasSubstr("RecentsSyncFetcher: ledgerly pull failed ")));
  EXPECT_EQ(recents(), "o|ledgerly|a|2026-01-01 00:00:00.000");
  inFile("DROP TRIGGER refuse; DELETE FROM ledgerly_sheets");
  settings.ledgerlyStore.reset();
  await(RecentsSyncFetcher(settings).syncOnce("o"));
  EXPECT_EQ(recents(), "o|ledgerly|a|2026-01-01 00:00:00.000 o|ledgerly|b|2026-01-01 00:00:00.000");
  EXPECT_EQ(sheetRows(), "");
}

TEST_F(RecentsSyncFetcherTest, FilesNoListUnderSomebodyWhoDidNotAskForIt) {
  answers[sheetsPath].body = R"({"sheets":[{"id":"a","updatedAt":"2026-01-01T00:00:00Z"}]})";
  for (const bool early : {true, false}) {
    for (const User& next : {User("p"), User()}) {
      user = "o";
      requests.clear();
      (early ? inBearer : inRequest) = [&] { user = next; };
      EXPECT_THAT(
          sync(),
          ElementsAre("RecentsSyncFetcher: ledgerly pull failed the account changed during the request",
                      "RecentsSyncFetcher: sceneward pull failed the account changed during the request"));
      EXPECT_EQ(requests.size(), early ? 0U : 1U);
      EXPECT_EQ(recents() + sheetRows(), "");
    }
    inBearer = inRequest = [] {};
  }
  user = "o";
  token.reset();
  EXPECT_THAT(sync(), IsEmpty());
  EXPECT_THAT(requests.back().headers, IsEmpty()) << "without a token the request goes out all the same";
}

TEST_F(RecentsSyncFetcherTest, AsksAgainAfterEachIntervalForWhoeverIsSignedIn) {
  int sleeps = 0;
  sleep = [&](std::chrono::milliseconds interval) -> Task<> {
    EXPECT_EQ(interval, std::chrono::seconds(1800));
    if (++sleeps == 3) throw CancelledFailure();
    user = sleeps == 1 ? User() : User("o");
    co_return;
  };
  EXPECT_EQ(failureOf([&] { await(fetcher.runForever(std::chrono::seconds(1800))); }),
            "The operation was cancelled.");
  EXPECT_EQ(requests.size(), 4U);
  EXPECT_THAT(log.take(), ElementsAre("RecentsSyncFetcher: signed out — skip"));
}

}  // namespace
}  // namespace vorlane
