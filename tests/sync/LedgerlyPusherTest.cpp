#include "sync/LedgerlyPusher.h"

#include "store/StoreFixture.h"
#include "support/LogRecorder.h"

#include <fmt/format.h>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <array>
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
constexpr char noNumber[] =
    R"(HTTPFailure(step: "POST /api/user/sheets", status: 201, body: "response carried no numeric sheet.id"))";

std::string textOf(const LedgerlyPusher::Outcome& outcome) {
  if (const auto* made = std::get_if<LedgerlyPusher::Created>(&outcome))
    return fmt::format("created {}", made->remoteID);
  if (const auto* replaced = std::get_if<LedgerlyPusher::Updated>(&outcome))
    return fmt::format("updated {}", replaced->remoteID);
  if (const auto* failed = std::get_if<LedgerlyPusher::Failed>(&outcome)) return "failed " + failed->error;
  return std::holds_alternative<LedgerlyPusher::SkippedNotASheet>(outcome) ? "not a sheet" : "deleted";
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
  /// "synced_at|remote_id|push_blocked_at", times as seconds after noon.
  std::string marks(const std::string& id) {
    const auto seconds = [](const char* column) {
      return fmt::format("strftime('%s', {0}) - strftime('%s', '2026-03-01 12:00:00')", column);
    };
    return inFile(fmt::format("SELECT {}, remote_id, {} FROM ledgerly_sheets WHERE id = '{}'",
                              seconds("synced_at"), seconds("push_blocked_at"), id));
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
  User user = "o";
  User token = "t";
  std::vector<URLRequest> requests;
  /// What the network answers, and what happens while the token is fetched.
  std::function<Task<URLResponse>()> answer = []() -> Task<URLResponse> {
    co_return URLResponse{.status = 201, .body = newSheet};
  };
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
  add("never", 3, std::nullopt,
      R"({"x":1,"categories":[{"id":"c","name":"N","items":[{"id":"i","qty":2}]}]})");
  add("dirty", 2, 42);
  add("clean", 1, 43);
  await(queries.markPushed("clean", 43, present + seconds(1)));
  add("blocked", 1, 44);
  await(queries.markPushBlocked("blocked", present + seconds(1)));
  inFile(
      "INSERT INTO ledgerly_sheets SELECT 'other', 'p', title, data, created_at, updated_at, NULL, 1, NULL "
      "FROM ledgerly_sheets WHERE id = 'never'");
  EXPECT_THAT(pass(), ElementsAre("dirty: updated 42", "never: created 7"));
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].method + " " + requests[0].url, "PUT https://ledgerly.test/api/user/sheets/42");
  EXPECT_EQ(requests[0].body, R"({"data":{"categories":[]},"name":"T dirty"})");
  EXPECT_EQ(requests[1].method + " " + requests[1].url, "POST https://ledgerly.test/api/user/sheets");
  EXPECT_EQ(
      requests[1].body,
      R"({"data":{"categories":[{"expanded":true,"id":"c","items":[{"baseQuantity":2.0,"checked":false,)"
      R"("id":"i","name":"","notes":{},"order":0,"price":0.0,"quantity":2.0}],"name":"N","order":0,)"
      R"("subcategories":[]}],"x":1},"metadata":{"source":"vorlane-agent"},"name":"T never",)"
      R"("sourceName":"T never","type":"saved"})");
  for (const auto& request : requests) {
    EXPECT_THAT(request.headers, ElementsAre(std::pair("Authorization", "Bearer t"),
                                             std::pair("Content-Type", "application/json")));
    EXPECT_EQ(request.timeout, seconds(60));
    EXPECT_EQ(request.silence, seconds(60));
    EXPECT_EQ(request.sentOnce, request.method == "POST");
    EXPECT_FALSE(request.followRedirects);
  }
  EXPECT_THAT(log.take(), ElementsAre("LedgerlyPusher: 2 sheet(s) pending",
                                      "LedgerlyPusher: updated dirty \"T dirty\" → sheet 42",
                                      "LedgerlyPusher: created never \"T never\" → sheet 7"));
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LedgerlyPusherTest, TakesNothingForAReceiptThatIsNone) {
  const auto failure = [](const char* step, int status, const char* body) {
    return fmt::format("failed HTTPFailure(step: \"{}\", status: {}, body: \"{}\")", step, status, body);
  };
  constexpr auto post = "POST /api/user/sheets", put = "PUT /api/user/sheets/42";
  constexpr int none = 0;
  struct Case {
    int remoteID, status;
    std::string body, outcome, marks;
  };
  const Case cases[] = {
      {none, 200, newSheet, "created 7", "5|7|-"},
      {none, 200, "{}", std::string("failed ") + noNumber, "-|-|-"},
      {none, 204, "", std::string("failed ") + noNumber, "-|-|-"},
      {none, 201, R"({"sheet":{"id":7.0}})", std::string("failed ") + noNumber, "-|-|-"},
      {none, 201, R"({"sheet":{"id":"7"}})", std::string("failed ") + noNumber, "-|-|-"},
      {none, 302, newSheet, failure(post, 302, R"({\"sheet\":{\"id\":7}})"), "-|-|-"},
      {none, 404, "what?", failure(post, 404, "what?"), "-|-|-"},
      {none, 500, "\xff", failure(post, 500, ""), "-|-|-"},
      {42, 200, "no JSON", "updated 42", "5|42|-"},
      {42, 401, "", failure(put, 401, ""), "-60|42|-"},
      {42, 410, "", failure(put, 410, ""), "-60|42|-"},
      {42, 404, "", "deleted", "-60|42|5"},
  };
  for (const auto& [remoteID, status, body, outcome, marked] : cases) {
    add("s", 5, remoteID == none ? std::nullopt : std::optional<std::int64_t>(remoteID));
    answer = [&]() -> Task<URLResponse> { co_return URLResponse{.status = status, .body = body}; };
    EXPECT_THAT(pass(), ElementsAre("s: " + outcome)) << status << " " << body;
    EXPECT_EQ(marks("s"), marked) << status << " " << body;
    EXPECT_EQ(lastError() == "null", !outcome.starts_with("failed") && outcome != "deleted") << outcome;
    await(queries.deleteSheet("s"));
  }
}

TEST_F(LedgerlyPusherTest, LeavesEverySheetPendingWhoseEditTheCloudHasNotSeen) {
  add("s", 5);
  int status = 201;
  bool edits = true;
  answer = [&]() -> Task<URLResponse> {
    present += seconds(10);
    if (edits) co_await queries.mutateDocument("s", [](JSONMap& sheet) { sheet["late"] = true; });
    co_return URLResponse{.status = status, .body = newSheet};
  };
  const auto expect = [&](int answered, bool editedMeanwhile, const char* outcome, const char* marked) {
    status = answered;
    edits = editedMeanwhile;
    EXPECT_THAT(pass(), ElementsAre(outcome));
    EXPECT_EQ(marks("s"), marked);
  };
  expect(201, true, "s: created 7", "5|7|-");
  expect(404, true, "s: deleted", "5|7|10");
  EXPECT_EQ(requests.back().body, R"({"data":{"categories":[],"late":true},"name":"T s"})");
  EXPECT_EQ(log.lines().back(),
            "LedgerlyPusher: s \"T s\" — sheet 7 is gone server-side, not resurrecting, and not asking again "
            "until it's edited");
  expect(404, false, "s: deleted", "5|7|20");
  EXPECT_THAT(pass(), IsEmpty());
  await(queries.mutateDocument("s", [](JSONMap&) {}));
  expect(200, false, "s: updated 7", "30|7|-");
  EXPECT_THAT(pass(), IsEmpty());
}

TEST_F(LedgerlyPusherTest, GoesOnAfterEachSheetThatFailsOrGoesMeanwhile) {
  const std::pair<const char*, const char*> data[] = {
      {"array", "[]"}, {"broken", "{"}, {"stub", "{}"}, {"mixed", R"({"categories":[{},1]})"}};
  int at = 0;
  for (const auto& [id, text] : data) add(id, ++at, std::nullopt, text);
  for (const auto* id : {"t1", "t2", "t3", "t4", "t5", "t6"}) add(id, ++at);
  answer = [&]() -> Task<URLResponse> {
    switch (requests.size()) {
      case 1:
        throw TransportFailure(7, "no way");
      case 2:
        throw std::runtime_error("odd");
      case 3:
        throw 3;
      case 4:
        throw CancelledFailure();  // of something else than this pass
      default:
        co_await queries.deleteSheet("t6");
        co_return URLResponse{.status = 201, .body = newSheet};
    }
  };
  const auto rows = pass();
  ASSERT_EQ(rows.size(), 9U);
  EXPECT_THAT(rows, Contains("array: failed snapshot is not a JSON object"));
  EXPECT_THAT(rows[1], HasSubstr("broken: failed "));
  EXPECT_THAT(Rows(rows.begin() + 2, rows.end()),
              ElementsAre("mixed: not a sheet", "stub: not a sheet", "t1: failed no way", "t2: failed odd",
                          "t3: failed an unknown failure", "t4: failed The operation was cancelled.",
                          "t5: created 7"));
  const auto lines = log.take();
  EXPECT_THAT(lines, Contains("LedgerlyPusher: t1 failed — no way"));
  EXPECT_THAT(lines, Contains("LedgerlyPusher: stub is a metadata stub, not a sheet — skipping"));
  EXPECT_THAT(lastError(), HasSubstr("The operation was cancelled."));
  EXPECT_THAT(writeJSON(journal->report("o").at("sheets").at("lastSuccess")), HasSubstr("2026-03-01"));
  EXPECT_EQ(marks("stub"), "-|-|-");
  EXPECT_EQ(pass().size(), 8U) << "each is tried again but the one that went up and the one that went";
}

TEST_F(LedgerlyPusherTest, LosesNothingWhenTheDatabaseFails) {
  add("new", 1);
  add("gone", 2, 42);
  answer = [&]() -> Task<URLResponse> {
    co_return URLResponse{.status = requests.back().method == "PUT" ? 404 : 201, .body = newSheet};
  };
  inFile("CREATE TRIGGER refuse BEFORE UPDATE ON ledgerly_sheets BEGIN SELECT RAISE(ABORT, 'refused'); END");
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(pass(), ElementsAre(HasSubstr("gone: failed "), HasSubstr("new: failed "))) << i;
  }
  EXPECT_EQ(requests.size(), 4U) << "what could not be marked is sent again";
  inFile("DROP TRIGGER refuse; ALTER TABLE ledgerly_sheets RENAME TO away");
  log.take();
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre(HasSubstr("LedgerlyPusher: queue read failed ")));
  inFile("ALTER TABLE away RENAME TO ledgerly_sheets");
  EXPECT_THAT(pass(), ElementsAre("gone: deleted", "new: created 7"));
}

TEST_F(LedgerlyPusherTest, NeverSendsASheetWithTheTokenOfAnotherAccount) {
  const std::string fence = "failed the account changed before the upload";
  const std::string unauthorized =
      R"(failed HTTPFailure(step: "POST /api/user/sheets", status: 401, body: ""))";
  struct Case {
    const char* what;
    bool inBearer;  // else while the first sheet is on its way
    User token, next;
    Rows outcomes;
    std::size_t sent;
  };
  const Case cases[] = {
      {"somebody else comes", true, "t", "p", {"s1: " + fence}, 0},
      {"somebody else comes, and no token", true, std::nullopt, "p", {"s1: " + fence}, 0},
      {"signed out with the token in hand", true, "t", std::nullopt, {"s1: " + fence}, 0},
      {"signed out, and no token", true, std::nullopt, std::nullopt, {"s1: " + unauthorized}, 1},
      {"no token", true, std::nullopt, "o", {"s1: " + unauthorized, "s2: " + unauthorized}, 2},
      {"somebody else comes late", false, "t", "p", {"s1: created 7", "s2: " + fence}, 1},
      {"signed out late", false, "t", std::nullopt, {"s1: created 7", "s2: " + fence}, 1},
  };
  for (const auto& now : cases) {
    add("s1", 1);
    add("s2", 2);
    user = "o";
    token = now.token;
    requests.clear();
    inBearer = [&]() -> Task<> {
      if (now.inBearer) user = now.next;
      co_return;
    };
    answer = [&]() -> Task<URLResponse> {
      user = now.next;
      const bool known = requests.back().headers[0].first == "Authorization";
      co_return URLResponse{.status = known ? 201 : 401, .body = known ? newSheet : ""};
    };
    EXPECT_EQ(pass(), now.outcomes) << now.what;
    EXPECT_EQ(requests.size(), now.sent) << now.what;
    EXPECT_EQ(marks("s1"), now.outcomes[0] == "s1: created 7" ? "1|7|-" : "-|-|-") << now.what;
    EXPECT_EQ(marks("s2"), "-|-|-") << now.what;
  }
}

TEST_F(LedgerlyPusherTest, EndsPromptlyWhenItIsCancelledAndMarksWhatTheCloudHas) {
  enum class At { bearer, upload, answered };
  struct Case {
    At at;
    std::optional<std::int64_t> remoteID;
    int status;
    std::string marks;
  };
  const Case cases[] = {{At::bearer, std::nullopt, 201, "-|-|-"},   {At::upload, std::nullopt, 201, "-|-|-"},
                        {At::answered, std::nullopt, 201, "1|7|-"}, {At::answered, 42, 200, "1|42|-"},
                        {At::answered, 42, 404, "-60|42|1"},        {At::answered, 42, 500, "-60|42|-"}};
  for (const auto& now : cases) {
    add("s1", 1, now.remoteID);
    add("s2", 2);
    requests.clear();
    const auto strand = boost::asio::make_strand(runtime.concurrent());
    boost::asio::cancellation_signal signal;
    Event never;
    const auto cancel = [&]() -> Task<> {
      boost::asio::post(strand, [&] { signal.emit(boost::asio::cancellation_type::terminal); });
      co_await never.wait();
    };
    inBearer = [&]() -> Task<> {
      if (now.at == At::bearer) co_await cancel();
    };
    answer = [&]() -> Task<URLResponse> {
      if (now.at == At::upload) co_await cancel();
      // A task is never cancelled before its first suspension.
      co_await boost::asio::post(boost::asio::use_awaitable);
      signal.emit(boost::asio::cancellation_type::terminal);
      co_return URLResponse{.status = now.status, .body = newSheet};
    };
    auto ended = boost::asio::co_spawn(
        strand, [&] { return pusher.runForever(seconds(60)); },
        boost::asio::bind_cancellation_slot(signal.slot(), boost::asio::use_future));
    EXPECT_NO_THROW(ended.get());
    EXPECT_EQ(marks("s1"), now.marks);
    EXPECT_EQ(marks("s2"), "-|-|-");
    EXPECT_EQ(requests.size(), now.at == At::bearer ? 0U : 1U);
  }
}

TEST_F(LedgerlyPusherTest, LoopsOverWhateverAPassComesTo) {
  std::vector<std::chrono::milliseconds> sleeps;
  sleep = [&](std::chrono::milliseconds interval) -> Task<> {
    sleeps.push_back(interval);
    switch (sleeps.size()) {
      case 1:
        user = "?";
        break;
      case 2:
        user = "o";
        add("s", 1);
        break;
      default:
        throw CancelledFailure();
    }
    co_return;
  };
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
