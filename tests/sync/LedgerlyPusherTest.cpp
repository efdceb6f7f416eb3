#include "sync/LedgerlyPusher.h"

#include "store/StoreFixture.h"
#include "support/LogRecorder.h"

#include <fmt/format.h>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <functional>
#include <stdexcept>
#include <vector>

namespace vorlane {
namespace {

using std::chrono::seconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Rows = std::vector<std::string>;
using User = std::optional<std::string>;

constexpr char emptySheet[] = R"({"categories":[]})";
constexpr char newSheet[] = R"({"sheet":{"id":7}})";
/// What a refused upload comes to; an update is one of sheet 7.
std::string refused(std::string_view method, int status, std::string_view body) {
  return fmt::format("failed HTTPFailure(step: \"{} /api/user/sheets{}\", status: {}, body: \"{}\")", method,
                     method == "PUT" ? "/7" : "", status, body);
}

std::string textOf(const LedgerlyPusher::Outcome& outcome) {
  if (const auto* made = std::get_if<LedgerlyPusher::Created>(&outcome))
    return fmt::format("created {}", made->remoteID);
  if (const auto* replaced = std::get_if<LedgerlyPusher::Updated>(&outcome))
    return fmt::format("updated {}", replaced->remoteID);
  if (const auto* failed = std::get_if<LedgerlyPusher::Failed>(&outcome)) return "failed " + failed->error;
  return std::holds_alternative<LedgerlyPusher::SkippedNotASheet>(outcome) ? "not a sheet" : "deleted";
}

Task<URLResponse> says(int status, std::string body = newSheet) {
  co_return URLResponse{.status = status, .body = std::move(body)};
}

class LedgerlyPusherTest : public StoreTest {
 protected:
  /// A dirty sheet of "o", edited so many seconds after noon.
  void add(const std::string& id, int at, std::optional<std::int64_t> remoteID = std::nullopt,
           const std::string& data = emptySheet) {
    LedgerlySheetRow row{id, "o", "T " + id, data, present, present + seconds(at)};
    row.remoteID = remoteID;
    if (remoteID) row.syncedAt = present - seconds(60);
    await(queries.save(std::move(row)));
  }
  /// "synced_at|remote_id|push_blocked_at", of the times the seconds.
  std::string marks(const std::string& id) {
    constexpr auto columns = "SELECT substr(synced_at, 18, 2), remote_id, substr(push_blocked_at, 18, 2)";
    return inFile(fmt::format("{} FROM ledgerly_sheets WHERE id = '{}'", columns, id));
  }
  /// One pass: "id: outcome" of each sheet.
  Rows pass() {
    Rows rows;
    for (const auto& [id, outcome] : await(pusher.runOnce())) rows.push_back(id + ": " + textOf(outcome));
    return rows;
  }
  std::string lastError() { return writeJSON(journal->report("o").at("sheets").at("lastError")); }

  LedgerlyQueries queries = queriesOn(open());
  testing::LogRecorder log;
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>([this] { return present; });
  User user = "o", token = "t";
  std::vector<URLRequest> requests;
  /// What the network answers, and what happens while the token is fetched.
  std::function<Task<URLResponse>()> answer = [] { return says(201); };
  std::function<Task<>()> inBearer = []() -> Task<> { co_return; };
  Sleeper sleep = sleepFor;
  LedgerlyPusher pusher{queries,
                        {.base = "https://ledgerly.test/",
                         .bearer = [this]() -> Task<User> {
                           const auto found = token;
                           co_await inBearer();
                           co_return found;
                         },
                         .send = [this](URLRequest request) -> Task<URLResponse> {
                           requests.push_back(std::move(request));
                           co_return co_await answer();
                         }},
                        [this] {
                          if (user == "?") throw std::runtime_error("no vault");
                          return user;
                        },
                        log.log(),
                        journal,
                        std::make_shared<AsyncMutex>(),
                        [this](std::chrono::milliseconds interval) { return sleep(interval); }};
};

TEST_F(LedgerlyPusherTest, SendsWhatIsPendingTheOldestEditFirst) {
  add("never", 3, {}, R"({"x":1,"categories":[{"id":"c","name":"N"}]})");
  add("dirty", 2, 42);
  EXPECT_THAT(pass(), ElementsAre("dirty: updated 42", "never: created 7"));
  const std::pair<std::string, std::string> expected[] = {
      {"PUT https://ledgerly.test/api/user/sheets/42", R"({"data":{"categories":[]},"name":"T dirty"})"},
      {"POST https://ledgerly.test/api/user/sheets",
       R"({"data":{"categories":[{"expanded":true,"id":"c","items":[],"name":"N","order":0,"subcategories":[]}],)"
       R"("x":1},"metadata":{"source":"vorlane-agent"},"name":"T never","sourceName":"T never","type":"saved"})"}};
  ASSERT_EQ(requests.size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    const auto& request = requests[i];
    EXPECT_EQ(std::pair(request.method + " " + request.url, request.body), expected[i]);
    EXPECT_THAT(request.headers, ElementsAre(std::pair("Authorization", "Bearer t"),
                                             std::pair("Content-Type", "application/json")));
    EXPECT_EQ(std::tuple(request.timeout, request.silence, request.sentOnce, request.followRedirects),
              std::tuple(seconds(60), seconds(60), request.method == "POST", false));
  }
  EXPECT_THAT(log.take(), ElementsAre("LedgerlyPusher: 2 sheet(s) pending",
                                      "LedgerlyPusher: updated dirty \"T dirty\" → sheet 42",
                                      "LedgerlyPusher: created never \"T never\" → sheet 7"));
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LedgerlyPusherTest, TakesNothingForAReceiptThatIsNoneAndLeavesWhatTheCloudHasNotSeenPending) {
  const auto edit = [this] {
    return queries.mutateDocument("s", [](JSONMap& sheet) { sheet["late"] = true; });
  };
  const auto noNumber = "s: " + refused("POST", 201, "response carried no numeric sheet.id");
  enum Edited { never, before, during };
  struct Case {
    Edited edited;
    int status;  // none when nothing is sent
    std::string body, outcome, marks;
  };
  const Case cases[] = {
      {never, 200, "{}", noNumber, "-|-|-"},
      {never, 204, "", noNumber, "-|-|-"},
      {never, 201, R"({"sheet":{"id":7.0}})", noNumber, "-|-|-"},
      {never, 201, R"({"sheet":{"id":"7"}})", noNumber, "-|-|-"},
      {never, 302, newSheet, "s: " + refused("POST", 302, R"({\"sheet\":{\"id\":7}})"), "-|-|-"},
      {never, 500, "\xff", "s: " + refused("POST", 500, ""), "-|-|-"},
      {during, 200, newSheet, "s: created 7", "05|7|-"},
      {during, 500, "", "s: " + refused("PUT", 500, ""), "05|7|-"},
      {during, 404, "", "s: deleted", "05|7|08"},
      {never, 404, "", "s: deleted", "05|7|09"},
      {never, 0, "", "", "05|7|09"},
      {before, 200, "", "s: updated 7", "10|7|-"},
      {never, 0, "", "", "10|7|-"},
  };
  add("s", 5);
  for (const auto& [edited, status, body, outcome, marked] : cases) {
    SCOPED_TRACE(outcome + body);
    if (edited == before) await(edit());
    answer = [&]() -> Task<URLResponse> {
      present += seconds(1);
      if (edited == during) co_await edit();
      co_return URLResponse{.status = status, .body = body};
    };
    EXPECT_EQ(pass(), status == 0 ? Rows() : Rows{outcome});
    EXPECT_EQ(marks("s"), marked);
    EXPECT_EQ(lastError() == "null", marked.ends_with("7|-") && !outcome.contains("failed"));
  }
  EXPECT_EQ(requests.back().body, R"({"data":{"categories":[],"late":true},"name":"T s"})");
  EXPECT_THAT(log.lines(), Contains("LedgerlyPusher: s \"T s\" — sheet 7 is gone server-side, not "
                                    "resurrecting, and not asking again until it's edited"));
}

TEST_F(LedgerlyPusherTest, GoesOnAfterEachSheetThatFailsOrGoesMeanwhile) {
  const std::pair<const char*, const char*> data[] = {
      {"array", "[]"}, {"broken", "{"}, {"stub", "{}"}, {"mixed", R"({"categories":[{},1]})"}};
  int at = 0;
  for (const auto& [id, text] : data) add(id, ++at, {}, text);
  for (const auto* id : {"t1", "t2", "t3", "t4", "t5", "t6"}) add(id, ++at);
  answer = [&] {
    const auto number = requests.size();
    if (number == 1) throw TransportFailure(7, "no way");
    if (number == 2) throw std::runtime_error("odd");
    if (number == 3) throw 3;
    if (number == 4) throw CancelledFailure();  // of something else than this pass
    await(queries.deleteSheet("t6"));
    return says(201);
  };
  EXPECT_THAT(pass(), ElementsAre("array: failed snapshot is not a JSON object", HasSubstr("broken: failed "),
                                  "mixed: not a sheet", "stub: not a sheet", "t1: failed no way",
                                  "t2: failed odd", "t3: failed an unknown failure",
                                  "t4: failed The operation was cancelled.", "t5: created 7"));
  const auto lines = log.take();
  EXPECT_THAT(lines, Contains("LedgerlyPusher: t1 failed — no way"));
  EXPECT_THAT(lines, Contains("LedgerlyPusher: stub is a metadata stub, not a sheet — skipping"));
  EXPECT_THAT(lastError(), HasSubstr("The operation was cancelled."));
  EXPECT_THAT(writeJSON(journal->report("o").at("sheets").at("lastSuccess")), HasSubstr("2026-03-01"));
  EXPECT_EQ(pass().size(), 8U) << "each is tried again but the one that went up and the one that went";
}

TEST_F(LedgerlyPusherTest, LosesNothingWhenTheDatabaseFails) {
  add("new", 1);
  add("gone", 2, 42);
  answer = [&] { return says(requests.back().method == "PUT" ? 404 : 201); };
  inFile("CREATE TRIGGER refuse BEFORE UPDATE ON ledgerly_sheets BEGIN SELECT RAISE(ABORT, 'refused'); END");
  EXPECT_THAT(pass(), ElementsAre(HasSubstr("gone: failed "), HasSubstr("new: failed ")));
  inFile("DROP TRIGGER refuse; ALTER TABLE ledgerly_sheets RENAME TO away");
  log.take();
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre(HasSubstr("LedgerlyPusher: queue read failed ")));
  inFile("ALTER TABLE away RENAME TO ledgerly_sheets");
  EXPECT_THAT(pass(), ElementsAre("gone: deleted", "new: created 7"));
  EXPECT_EQ(requests.size(), 4U) << "what could not be marked is sent again";
}

TEST_F(LedgerlyPusherTest, NeverSendsASheetWithTheTokenOfAnotherAccount) {
  const std::string fence = "failed the account changed before the upload",
                    refusal = refused("POST", 401, "");
  struct Case {
    bool inBearer;  // else while the first sheet is on its way
    User token, next;
    Rows outcomes;
    std::size_t sent;
  };
  const Case cases[] = {
      {true, "t", "p", {"s1: " + fence}, 0},
      {true, {}, "p", {"s1: " + fence}, 0},
      {true, "t", {}, {"s1: " + fence}, 0},
      {true, {}, {}, {"s1: " + refusal}, 1},
      {true, {}, "o", {"s1: " + refusal, "s2: " + refusal}, 2},
      {false, "t", "p", {"s1: created 7", "s2: " + fence}, 1},
  };
  for (const auto& now : cases) {
    SCOPED_TRACE(&now - cases);
    add("s1", 1);
    add("s2", 2);
    user = "o";
    token = now.token;
    requests.clear();
    inBearer = [&]() -> Task<> {
      if (now.inBearer) user = now.next;
      co_return;
    };
    answer = [&] {
      user = now.next;
      return says(requests.back().headers[0].first == "Authorization" ? 201 : 401, now.token ? newSheet : "");
    };
    EXPECT_EQ(pass(), now.outcomes);
    EXPECT_EQ(requests.size(), now.sent);
  }
}

TEST_F(LedgerlyPusherTest, EndsPromptlyWhenItIsCancelledAndMarksWhatTheCloudHas) {
  enum At { token, upload, answered };
  const std::tuple<At, std::optional<std::int64_t>, int, const char*> cases[] = {
      {token, {}, 201, "-|-|-"},      {upload, {}, 201, "-|-|-"},      {answered, {}, 201, "01|7|-"},
      {answered, 42, 200, "01|42|-"}, {answered, 42, 404, "00|42|01"}, {answered, 42, 500, "00|42|-"}};
  for (const auto& [at, remoteID, status, marked] : cases) {
    SCOPED_TRACE(&marked);
    add("s1", 1, remoteID);
    add("s2", 2);
    requests.clear();
    const auto strand = boost::asio::make_strand(runtime.concurrent());
    boost::asio::cancellation_signal signal;
    Event never;
    const auto cancelAt = [&](At place) -> Task<> {
      if (place != at) co_return;
      // A task is never cancelled before its first suspension.
      boost::asio::post(strand, [&] { signal.emit(boost::asio::cancellation_type::terminal); });
      if (place != answered) co_await never.wait();
      co_await boost::asio::post(boost::asio::use_awaitable);
    };
    inBearer = [&] { return cancelAt(token); };
    answer = [&]() -> Task<URLResponse> {
      co_await cancelAt(upload);
      co_await cancelAt(answered);
      co_return URLResponse{.status = status, .body = newSheet};
    };
    auto ended = boost::asio::co_spawn(
        strand, [&] { return pusher.runForever(seconds(60)); },
        boost::asio::bind_cancellation_slot(signal.slot(), boost::asio::use_future));
    EXPECT_NO_THROW(ended.get());
    EXPECT_EQ(marks("s1"), marked);
    EXPECT_EQ(marks("s2"), "-|-|-");
    EXPECT_EQ(requests.size(), at == token ? 0U : 1U);
  }
}

TEST_F(LedgerlyPusherTest, LoopsOverWhateverAPassComesTo) {
  std::vector<std::chrono::milliseconds> sleeps;
  sleep = [&](std::chrono::milliseconds interval) -> Task<> {
    sleeps.push_back(interval);
    if (sleeps.size() == 3) throw CancelledFailure();
    user = sleeps.size() == 1 ? "?" : "o";
    co_return;
  };
  add("s", 1);
  user.reset();
  EXPECT_EQ(failureOf([&] { await(pusher.runForever(seconds(60))); }), "The operation was cancelled.");
  EXPECT_THAT(sleeps, ElementsAre(seconds(60), seconds(60), seconds(60)));
  EXPECT_THAT(
      log.take(),
      ElementsAre("LedgerlyPusher: push loop started (every 60s)", "LedgerlyPusher: signed out — skip",
                  "LedgerlyPusher: pass failed no vault", "LedgerlyPusher: 1 sheet(s) pending",
                  "LedgerlyPusher: created s \"T s\" → sheet 7"));
}

}  // namespace
}  // namespace vorlane
