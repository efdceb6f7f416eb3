#include "tests/sync/CloudHarness.h"

#include "base/tasks/Event.h"

namespace vorlane {
namespace {

using ::testing::Contains;
using ::testing::ElementsAreArray;

using LedgerlyPusherTest = CloudHarness;

TEST_F(LedgerlyPusherTest, SendsWhatIsPendingTheOldestEditFirst) {
  cloud.call(&Sheets::put, {.owner = ana, .name = "Old"});
  addSheet("never", 3, {}, R"({"x":1,"categories":[{"id":"c","name":"N"}]})");
  addSheet("dirty", 2, 1000, R"({"categories":[]})");
  EXPECT_THAT(pushSheets(), ElementsAre("dirty: updated 1000", "never: created 1001"));
  Texts sent;
  for (const auto& request : cloud.call(&RequestLog::find, {}))
    sent.push_back(fmt::format("{} {} {} {}", request.method, request.path,
                               request.header("Content-Type").value_or("-"), request.body));
  EXPECT_THAT(
      sent,
      ElementsAre(
          R"(PUT /api/user/sheets/1000 application/json {"data":{"categories":[]},"name":"T dirty"})",
          R"(POST /api/user/sheets application/json {"data":{"categories":[{"expanded":true,"id":"c","items":[],)"
          R"("name":"N","order":0,"subcategories":[]}],"x":1},"metadata":{"source":"vorlane-agent"},)"
          R"("name":"T never","sourceName":"T never","type":"saved"})"));
  EXPECT_THAT(log.take(), ElementsAre("LedgerlyPusher: 2 sheet(s) pending",
                                      "LedgerlyPusher: updated dirty \"T dirty\" → sheet 1000",
                                      "LedgerlyPusher: created never \"T never\" → sheet 1001"));
  EXPECT_THAT(pushSheets(), IsEmpty());
  EXPECT_THAT(log.take(), IsEmpty());
  // A connection that breaks without a byte is no failure: replacing a sheet twice does no harm.
  cloud.call(&Faults::add, {.path = sheetsPath, .prefix = true, .cut = FaultCut::before});
  addSheet("dirty", 2, 1002);
  EXPECT_THAT(pushSheets(), ElementsAre("dirty: deleted"));
  EXPECT_THAT(log.lines(), Contains("LedgerlyPusher: dirty \"T dirty\" — sheet 1002 is gone server-side, not "
                                    "resurrecting, and not asking again until it's edited"));
  // The mark finds the row also under an id that is no text, as another program may have written it.
  addSheet("odd");
  inFile("UPDATE ledgerly_sheets SET id = CAST(x'ff41' AS TEXT) WHERE id = 'odd'");
  EXPECT_THAT(pushSheets(), SizeIs(1));
  EXPECT_THAT(pushSheets(), IsEmpty());
}

TEST_F(LedgerlyPusherTest, GoesOnAfterEachSheetThatFailsOrGoesMeanwhile) {
  const std::pair<const char*, const char*> data[] = {
      {"array", "[]"}, {"broken", "{"}, {"stub", "{}"}, {"mixed", R"({"categories":[{},1]})"}};
  int at = 0, requests = 0;
  for (const auto& [id, text] : data) addSheet(id, ++at, {}, text);
  for (const auto* id : {"t1", "t2", "t3", "t4"}) addSheet(id, ++at);
  meanwhile = [&](char place) -> Task<> {
    if (place != 'P') co_return;
    if (++requests == 1) throw 3;
    if (requests == 2) throw CancelledFailure();  // of something else than this pass
    co_await sheets.deleteSheet("t4");
  };
  EXPECT_THAT(pushSheets(),
              ElementsAre("array: failed snapshot is not a JSON object", StartsWith("broken: failed "),
                          "mixed: not a sheet", "stub: not a sheet", "t1: failed an unknown failure",
                          "t2: failed The operation was cancelled.", "t3: created 1000"));
  EXPECT_THAT(log.take(), AllOf(Contains("LedgerlyPusher: t1 failed — an unknown failure"),
                                Contains("LedgerlyPusher: stub is a metadata stub, not a sheet — skipping")));
  EXPECT_EQ(lastError("sheets"), "The operation was cancelled.") << "although one went up after it";
  EXPECT_TRUE(journal->report(ana).at("sheets").at("lastSuccess").is_string());
  EXPECT_THAT(pushSheets(), SizeIs(6))
      << "each is tried again but the one that went up and the one that went";
}

TEST_F(LedgerlyPusherTest, LosesNothingWhenTheDatabaseFails) {
  addSheet("gone", 2, 42);
  addSheet("new", 1);
  inFile("CREATE TRIGGER refuse BEFORE UPDATE ON ledgerly_sheets BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_THAT(pushSheets(), ElementsAre(StartsWith("gone: failed "), StartsWith("new: failed ")));
  inFile("DROP TRIGGER refuse; ALTER TABLE ledgerly_sheets RENAME TO away");
  log.take();
  EXPECT_THAT(pushSheets(), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre(StartsWith("LedgerlyPusher: queue read failed ")));
  EXPECT_THAT(lastError("sheets"), HasSubstr("ledgerly_sheets"));
  inFile("ALTER TABLE away RENAME TO ledgerly_sheets");
  EXPECT_THAT(pushSheets(), ElementsAre("gone: deleted", "new: created 1001"));
}

TEST_F(LedgerlyPusherTest, PushesNothingWithoutANetworkAndSaysSoOnceEachTime) {
  addSheet("s1", 1);
  addSheet("s2", 2);
  // The third pass loses its network on the way.
  int passes = 0;
  bool online = false;
  sleep = [&](std::chrono::milliseconds) -> Task<> {
    online = ++passes == 2;
    if (passes == 5) throw CancelledFailure();
    co_return;
  };
  meanwhile = [&](char place) -> Task<> {
    if (place != 'P') co_return;
    online = false;
    throw TransportFailure(7, "no route");
  };
  LedgerlyPusher pusher(sheets, {api}, log.log(), journal, exchange, sleeper, [&] { return online; });
  run([&] { return pusher.runForever(std::chrono::seconds(60)); });
  EXPECT_THAT(log.take(),
              ElementsAre("LedgerlyPusher: push loop started (every 60s)",
                          "LedgerlyPusher: there is no network, nothing is pushed",
                          "LedgerlyPusher: the network is back", "LedgerlyPusher: 2 sheet(s) pending",
                          "LedgerlyPusher: s1 failed — no route",
                          "LedgerlyPusher: there is no network, nothing is pushed"));
}

TEST_F(LedgerlyPusherTest, NeverSendsASheetWithTheTokenOfAnotherAccountOrWhenItIsCancelled) {
  const auto valid = token;
  const auto fenced = HasSubstr("failed the account changed before the upload");
  const auto refused = HasSubstr("status: 401");
  // The token, who is signed in when it is there, where the pass is cancelled, the outcomes, the requests.
  using Outcomes = std::vector<::testing::Matcher<std::string>>;
  const std::tuple<Text, Text, char, Outcomes, std::size_t> cases[] = {{valid, bo, '-', {fenced}, 0},
                                                                       {{}, bo, '-', {fenced}, 0},
                                                                       {valid, {}, '-', {fenced}, 0},
                                                                       {{}, {}, '-', {refused}, 1},
                                                                       {{}, ana, '-', {refused, refused}, 2},
                                                                       {valid, ana, 'T', {}, 0},
                                                                       {valid, ana, 'P', {}, 0}};
  for (const auto& [given, next, cancelled, outcomes, sent] : cases) {
    SCOPED_TRACE(fmt::format("{} {} {}", given.has_value(), next.value_or("nobody"), cancelled));
    addSheet("s1", 1);
    addSheet("s2", 2);
    become(ana, given);
    cloud.call(&RequestLog::clear);
    Event never;
    meanwhile = [&](char place) -> Task<> {
      if (place == 'T') become(next, given);
      if (place != cancelled) co_return;
      cancel();
      co_await never.wait();
    };
    EXPECT_THAT(pushSheets(), ElementsAreArray(outcomes));
    EXPECT_THAT(cloud.call(&RequestLog::find, {}), SizeIs(sent));
    meanwhile = nullptr;
    become(ana, valid);
    EXPECT_THAT(pushSheets(), ElementsAre(StartsWith("s1: created "), StartsWith("s2: created ")));
  }
}

}  // namespace
}  // namespace vorlane
