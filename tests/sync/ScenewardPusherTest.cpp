#include "auth/AuthNotifications.h"
#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "base/tasks/Event.h"
#include "base/tasks/TaskGroup.h"
#include "store/StoreFixture.h"
#include "support/CheckpointPayload.h"
#include "support/LogRecorder.h"
#include "sync/ScenewardPusher.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Text = std::optional<std::string>;

constexpr char project[] = "11111111-2222-4333-8444-555555555555";
constexpr char yes[] = R"({"cloudProjectWrite":true})";
const std::string both = "1 pushed 4, 2 pushed 4";
const std::string failed = "1 failed Cloud Save pending";
const std::string remains = "Sceneward explicit Cloud Save remains pending";

std::string profile(const std::string& subject, const std::string& capabilities) {
  return fmt::format(R"({{"subject":{},"persistenceCapabilities":{}}})", subject, capabilities);
}

/// What the cloud answers to a save.
JSONMap receiptOf(const std::string& payload) {
  const auto save = parseJSONMap(payload);
  const auto& checkpoint = save.at("checkpoint");
  return JSONMap{{"checkpointId", checkpoint.at("id")},
                 {"committedAt", "2026-03-01T12:00:00.5Z"},
                 {"committedManifestRevision", save.at("expectedRevision").as_int64() + 1},
                 {"contentHash", checkpoint.at("contentHash")}};
}

/// "1 pushed 4, 2 failed Cloud Save pending", by the last digit of the operation.
std::string text(const ScenewardPusher::Outcomes& outcomes) {
  std::vector<std::string> texts;
  for (const auto& [id, outcome] : outcomes) {
    const auto* pushed = std::get_if<ScenewardPusher::Pushed>(&outcome);
    const auto* kept = std::get_if<ScenewardPusher::Failed>(&outcome);
    texts.push_back(fmt::format("{} {}", id.back(),
                                pushed != nullptr ? fmt::format("pushed {}", pushed->version)
                                : kept != nullptr ? "failed " + kept->reason
                                                  : "blocked"));
  }
  return fmt::format("{}", fmt::join(texts, ", "));
}

/// A real queue, and a cloud that does what the test has ordered.
class ScenewardPusherTest : public StoreTest {
 protected:
  ScenewardPusherTest() { freshOwner("o"); }

  /// The n-th save, made on revision 3.
  void push(int n) {
    payloads[n] = checkpointPayload(project, fmt::format("00000000-0000-4000-8000-00000000000{}", n), 3);
    await(queue.enqueue(owner, project, payloads[n]));
  }
  /// Another account's turn for a whole new round of a table.
  void freshOwner(std::string name) {
    owner = std::move(name);
    user = owner;
    push(1);
    push(2);
    userCalls = 0;
  }
  std::string run() { return text(await(pusher->runOnce())); }
  std::string statuses() {
    constexpr auto rows =
        "SELECT status FROM sceneward_checkpoint_queue WHERE owner_id='{}' ORDER BY created_at";
    return inFile(fmt::format(rows, owner));
  }
  /// The saves that were sent since this was last asked, and P for each preflight.
  std::string sent() {
    std::string sent;
    for (; seen < requests.size(); ++seen) {
      const auto& [method, body] = std::tie(requests[seen].method, requests[seen].body);
      sent += method == "GET" ? 'P' : json::stringOr(parseJSONMap(body), "operationId").back();
    }
    return sent;
  }
  std::string lastError() {
    const auto report = journal->report(owner);
    const auto* error = json::object(*json::object(report, "checkpoints"), "lastError");
    return error == nullptr ? "" : json::stringOr(*error, "error");
  }
  Task<URLResponse> answer(URLRequest request) {
    const bool preflight = request.method == "GET";
    requests.push_back(request);
    if (auto hook = meanwhile) co_await hook(preflight ? 'P' : 'S');
    if (auto ordered = std::exchange(preflight ? preflightAnswer : saveAnswer, std::nullopt)) {
      if (ordered->status == 0) throw TransportFailure(7, "Connection refused");
      co_return std::move(*ordered);
    }
    co_return URLResponse{
        201, {}, {}, preflight ? profile('"' + owner + '"', yes) : writeJSON(receiptOf(request.body))};
  }

  std::shared_ptr<AgentStore> store = open();
  ScenewardCheckpointQueue queue{store};
  NotificationCenter notifications;
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>();
  testing::LogRecorder log;

  std::string owner;
  Text user, token = "token-1";
  std::map<int, std::string> payloads;
  std::function<void(int)> atUser;  // with the number of the call within the pass
  int userCalls = 0;
  std::function<Task<>(char)> meanwhile;  // while the Token, the Preflight, the Save is awaited
  std::optional<URLResponse> preflightAnswer, saveAnswer;  // each for one request; status 0 fails it
  std::vector<URLRequest> requests;
  std::size_t seen = 0;

  std::shared_ptr<ScenewardPusher> pusher = std::make_shared<ScenewardPusher>(
      queue,
      ScenewardPushClient{.base = "https://cloud.test",
                          .bearer = [this]() -> Task<Text> {
                            if (auto hook = meanwhile) co_await hook('T');
                            co_return token;
                          },
                          .send = [this](URLRequest request) { return answer(std::move(request)); },
                          .identify = [](URLRequest&) {}},
      [this] {
        if (const auto hook = atUser) hook(++userCalls);
        return user;
      },
      notifications, journal, log.log());
};

TEST_F(ScenewardPusherTest, ASaveGoesUpAsItWasHandedOverAndOnceAndASecondCallerGetsNothing) {
  std::vector<std::string> second;
  meanwhile = [&](char) -> Task<> { second.push_back(text(co_await pusher->runOnce())); };
  EXPECT_EQ(run(), both);
  EXPECT_EQ(second, std::vector<std::string>(6));
  EXPECT_EQ(statuses(), "acknowledged acknowledged");
  EXPECT_EQ(inFile("SELECT receipt FROM sceneward_checkpoint_queue ORDER BY created_at LIMIT 1"),
            writeJSON(receiptOf(payloads[1])));
  EXPECT_EQ(sent(), "P1P2");
  const auto& save = requests[1];
  EXPECT_EQ(save.url, fmt::format("https://cloud.test/api/v1/projects/{}/checkpoints", project));
  EXPECT_EQ(save.body, payloads[1]);
  EXPECT_EQ(save.timeout, std::chrono::seconds(60));
  EXPECT_NE(json::stringOr(*json::object(journal->report(owner), "checkpoints"), "lastSuccess"), "");

  EXPECT_EQ(run(), "") << "nothing is sent twice";
  push(3);
  user = std::nullopt;
  EXPECT_EQ(run(), "") << "nobody is signed in";
  atUser = [](int) { throw Failure("the vault is locked"); };
  EXPECT_EQ(run(), "") << "nor is somebody who cannot be told";
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ScenewardPusherTest, WithoutATokenAClearYesAndAMatchingReceiptTheSaveStaysPendingAndIsTriedAgain) {
  struct Case {
    Text token;
    std::optional<URLResponse> preflight, save;
    std::string sent, error;
  };
  const auto answered = [](std::string body, int status = 200) { return URLResponse{status, {}, {}, body}; };
  std::vector<Case> cases{{std::nullopt, {}, {}, "", "Nobody is signed in for the Cloud Save."},
                          {"", {}, {}, "", "Nobody is signed in for the Cloud Save."},
                          {"t", {}, answered("", 199), "P1", "Cloud Save returned HTTP 199"},
                          {"t", {}, answered("", 0), "P1", "Connection refused"}};
  const auto denied = [&](const char* subject, const char* capabilities) {
    const auto body = profile(subject, capabilities);
    cases.push_back({"t", answered(body), {}, "P", "The cloud does not let this account save projects."});
  };
  for (const auto* subject : {R"("O")", "1", "null"}) denied(subject, yes);
  for (const auto* value : {"[true]", "{}", R"({"cloudProjectWrite":false})", R"({"cloudProjectWrite":1})",
                            R"({"cloudProjectWrite":"true"})"}) {
    denied(R"("o")", value);
  }
  const std::pair<const char*, JSONValue> wrong[] = {{"checkpointId", JSONValue(newLowercaseUUID())},
                                                     {"committedAt", "yesterday"},
                                                     {"committedManifestRevision", 5},
                                                     {"contentHash", nullptr}};
  for (const auto& [key, value] : wrong) {
    auto receipt = receiptOf(payloads[1]);
    receipt[key] = value;
    cases.push_back({"t", {}, answered(writeJSON(receipt)), "P1", ""});
  }
  for (const auto& now : cases) {
    SCOPED_TRACE(now.error + (now.preflight ? now.preflight->body : now.save ? now.save->body : ""));
    std::tie(token, preflightAnswer, saveAnswer) = std::tie(now.token, now.preflight, now.save);
    EXPECT_EQ(run(), failed);
    EXPECT_EQ(sent(), now.sent);
    EXPECT_EQ(statuses(), "pending pending");
    EXPECT_THAT(lastError(), HasSubstr(now.error));
    EXPECT_THAT(log.take(), ElementsAre(remains));
  }
  saveAnswer = URLResponse{409, {}, {}, ""};
  EXPECT_EQ(run(), "1 blocked, 2 pushed 4");
  EXPECT_EQ(lastError(), "") << "ended by the success after it";
  EXPECT_THAT(log.take(), IsEmpty());
}

/// The user is asked for at 1 (the pass begins), 2 (the loop), 3 to 5 (the fences after token,
/// preflight and save), 6 (before the receipt is kept), 7 (the loop). A refresh at one of them
/// comes after the generation was read there, so that the next place finds it.
TEST_F(ScenewardPusherTest, TheFenceIsReadAtEachOfItsPlacesAndAReceiptThatComesTooLateIsDropped) {
  enum Change { signOut, refresh, cancelProject, erase, unreadable };
  const std::map<char, std::string> outcomes{{'-', ""},
                                             {'f', failed},
                                             {'k', "1 pushed 4"},
                                             {'x', "1 pushed 4, 2 failed Cloud Save pending"},
                                             {'b', both}};
  struct {
    const char *outcomes, *sent[7];
  } const rows[] = {{"--fff-k", {"", "", "", "P", "P1", "P1", "P1"}},
                    {"bfff-kx", {"P1P2", "", "P", "P1", "P1", "P1", "P1"}},
                    {"--ffffk", {"", "", "", "P", "P1", "P1", "P1"}}};
  for (const auto change : {signOut, refresh, cancelProject, erase, unreadable}) {
    const auto& row = rows[std::min<int>(change, cancelProject)];
    for (int place = 1; place <= 7; ++place) {
      SCOPED_TRACE(fmt::format("change {} at {}", static_cast<int>(change), place));
      freshOwner(fmt::format("o-{}-{}", static_cast<int>(change), place));
      const auto hash = sha256Hex(owner);
      const std::string statements[] = {
          fmt::format("INSERT INTO sceneward_cancelled_projects VALUES ('{}','{}',NULL)", hash, project),
          fmt::format("INSERT INTO sceneward_checkpoint_deleted_owners VALUES ('{}','2026-01-01')", hash),
          "ALTER TABLE sceneward_cancelled_projects RENAME TO away"};
      atUser = [&](int call) {
        if (call != place) return;
        if (change >= cancelProject) inFile(statements[change - cancelProject]);
        if (change == signOut) user = std::nullopt;
        if (change <= refresh) notifications.post(auth::changed);
      };
      const char outcome = row.outcomes[place - 1];
      EXPECT_EQ(run(), outcomes.at(outcome));
      atUser = nullptr;
      if (change == unreadable) inFile("ALTER TABLE away RENAME TO sceneward_cancelled_projects");
      EXPECT_EQ(sent(), row.sent[place - 1]);
      const bool kept = outcome == 'k' || outcome == 'x';
      EXPECT_EQ(statuses(), outcome == 'b' ? "acknowledged acknowledged"
                            : kept         ? "acknowledged pending"
                                           : "pending pending");
      const bool remained = outcome == 'f' || outcome == 'x';
      EXPECT_EQ(fmt::format("{}", fmt::join(log.take(), " ")), remained ? remains
                                                               : change == unreadable
                                                                   ? "Sceneward Save queue unavailable"
                                                                   : "");
      if (outcome == 'f' && place < 6) {
        EXPECT_EQ(lastError(), "The account changed during the Cloud Save, or the save was taken back.");
      }
    }
  }
}

TEST_F(ScenewardPusherTest, WhatTheStoreRefusesIsTriedOnceInAPassAndKept) {
  inFile(
      "CREATE TRIGGER full BEFORE UPDATE ON sceneward_checkpoint_queue BEGIN SELECT RAISE(ABORT,'full'); "
      "END");
  for (const bool blocking : {true, false}) {
    if (blocking) saveAnswer = URLResponse{409, {}, {}, ""};
    EXPECT_EQ(run(), blocking ? "1 blocked" : failed) << "nothing overtakes it";
    EXPECT_EQ(sent(), "P1");
    EXPECT_EQ(statuses(), "pending pending");
  }
  EXPECT_THAT(lastError(), HasSubstr("full"));
  inFile("DROP TRIGGER full");
  EXPECT_EQ(run(), both);
}

TEST_F(ScenewardPusherTest, APassThatIsCancelledAtAnAwaitLeavesAllAsItWasAndTheNextOneRuns) {
  // Reading the queue, the Token, the Preflight, the Save, Acknowledging, Blocking.
  for (const char moment : {'R', 'T', 'P', 'S', 'A', 'B'}) {
    SCOPED_TRACE(moment);
    freshOwner(std::string(1, moment));
    TaskGroup group;
    Event never;
    // A write that is asked for waits for another program meanwhile.
    OtherProgram other(folder.database());
    const auto cancelAtWrite = [&] {
      other.run("BEGIN IMMEDIATE");
      group.cancel();
    };
    atUser = [&](int call) {
      if (moment == 'R' && call == 2) group.cancel();
      if (moment == 'A' && call == 6) cancelAtWrite();
    };
    meanwhile = [&](char place) -> Task<> {
      if (moment == 'B' && place == 'S') cancelAtWrite();
      if (moment != place) co_return;
      group.cancel();
      co_await never.wait();
    };
    if (moment == 'B') saveAnswer = URLResponse{409, {}, {}, ""};
    group.spawn(runtime.concurrent(), "pass", [this]() -> Task<> { co_await pusher->runOnce(); });
    await(group.join());
    other.run("COMMIT");
    store->dbWriter().write([](Database&) {});  // those before it have been made
    atUser = nullptr;
    meanwhile = nullptr;
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(lastError(), moment == 'B' ? "Cloud Save returned HTTP 409" : "");
    const bool landed = moment == 'A' || moment == 'B';
    if (!landed) EXPECT_EQ(statuses(), "pending pending");
    EXPECT_EQ(run(), landed ? "2 pushed 4" : both);
    EXPECT_EQ(statuses(), moment == 'B' ? "blocked acknowledged" : "acknowledged acknowledged");
  }
}

}  // namespace
}  // namespace vorlane
