#include "auth/AuthNotifications.h"
#include "auth/DeviceIdentity.h"
#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "base/tasks/Event.h"
#include "base/tasks/TaskGroup.h"
#include "store/StoreFixture.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"
#include "sync/ScenewardPusher.h"

#include <fmt/format.h>
#include <boost/asio/use_future.hpp>

#include <array>
#include <set>
#include <thread>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char project[] = "11111111-2222-4333-8444-555555555555";
const std::string both = "1 pushed 4, 2 pushed 4";
const std::string failed = "1 failed Cloud Save pending";
const std::string remains = "Sceneward explicit Cloud Save remains pending";

std::string operationID(int n) {
  return fmt::format("00000000-0000-4000-8000-00000000000{}", n);
}
std::string checkpointID(int n) {
  return fmt::format("abcdef00-0000-4000-9000-00000000000{}", n);
}

/// The n-th save, made on revision 3.
std::string payload(int n) {
  constexpr auto form =
      R"({{"operationId":"{}","expectedRevision":3,"checkpoint":{{"schemaVersion":1,"id":"{}","contentHash":"{:a<64}",)"
      R"("projectDocument":{{"id":"{}","scenes":[]}},"assets":[{{"kind":"project-archive","id":"project-archive",)"
      R"("data":"{}","bytes":7,"sha256":"{}"}}]}}}})";
  return fmt::format(form, operationID(n), checkpointID(n), "", project, base64Encoded("archive"),
                     sha256Hex("archive"));
}

/// What the cloud answers to it.
std::string receipt(int n) {
  return fmt::format(
      R"({{"checkpointId":"{}","committedAt":"2026-03-01T12:00:00.5Z","committedManifestRevision":4,)"
      R"("contentHash":"{:a<64}"}})",
      checkpointID(n), "");
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
  return text.replace(text.find(part), part.size(), by);
}

/// "1 pushed 4, 2 failed Cloud Save pending", by the last digit of the operation.
std::string text(const ScenewardPusher::Outcomes& outcomes) {
  std::string text;
  for (const auto& [id, outcome] : outcomes) {
    text += fmt::format("{}{} ", text.empty() ? "" : ", ", id.back());
    if (const auto* pushed = std::get_if<ScenewardPusher::Pushed>(&outcome)) {
      text += fmt::format("pushed {}", pushed->version);
    } else if (const auto* kept = std::get_if<ScenewardPusher::Failed>(&outcome)) {
      text += "failed " + kept->reason;
    } else {
      text += "blocked";
    }
  }
  return text;
}

/// A real queue, and a cloud that does what the test has ordered.
class ScenewardPusherTest : public StoreTest {
 protected:
  enum class Change { signOut, otherAccount, refresh, cancelProject, erase, unreadable };

  ScenewardPusherTest() { freshOwner("o"); }

  void push(int n) { await(queue.enqueue(owner, project, payload(n))); }
  std::string run() { return text(await(pusher->runOnce())); }
  std::string statuses() {
    constexpr auto rows =
        "SELECT status FROM sceneward_checkpoint_queue WHERE owner_id='{}' ORDER BY created_at";
    return inFile(fmt::format(rows, owner));
  }
  /// The saves that were sent, and P for each preflight.
  std::string sent() {
    std::string sent;
    for (const auto& request : std::exchange(requests, {})) {
      sent +=
          request.method == "GET" ? 'P' : json::stringOr(parseJSONMap(request.body), "operationId").back();
    }
    return sent;
  }
  std::string lastError() {
    const auto report = journal->report(owner);
    const auto* error = json::object(*json::object(report, "checkpoints"), "lastError");
    return error == nullptr ? "" : json::stringOr(*error, "error");
  }
  /// Another account's turn for a whole new round of a table.
  void freshOwner(std::string name) {
    owner = std::move(name);
    user = owner;
    push(1);
    push(2);
  }

  void make(Change change) {
    const auto hash = sha256Hex(owner);
    if (change == Change::cancelProject) {
      inFile(fmt::format("INSERT INTO sceneward_cancelled_projects VALUES ('{}','{}',NULL)", hash, project));
    } else if (change == Change::erase) {
      inFile(fmt::format("INSERT INTO sceneward_checkpoint_deleted_owners VALUES ('{}','2026-01-01')", hash));
    } else if (change == Change::unreadable) {
      inFile("ALTER TABLE sceneward_cancelled_projects RENAME TO away");
    } else {
      if (change == Change::signOut) user = std::nullopt;
      if (change == Change::otherAccount) user = "somebody else";
      notifications.post(auth::changed);
    }
  }

  Task<URLResponse> answer(URLRequest request) {
    requests.push_back(request);
    const bool preflight = request.method == "GET";
    if (auto hook = preflight ? atPreflight : atSave) co_await hook();
    if (auto ordered = std::exchange(preflight ? preflightAnswer : saveAnswer, std::nullopt)) {
      if (ordered->status == 0) throw TransportFailure(7, "Connection refused");
      co_return std::move(*ordered);
    }
    if (preflight) co_return URLResponse{200, {}, {}, profile()};
    const auto operation = json::stringOr(parseJSONMap(request.body), "operationId");
    co_return URLResponse{200, {}, {}, receipt(operation.back() - '0')};
  }
  std::string profile() const {
    return R"({"subject":")" + owner + R"(","persistenceCapabilities":{"cloudProjectWrite":true}})";
  }
  static std::function<Task<>()> doing(std::function<void()> work) {
    return [work = std::move(work)]() -> Task<> {
      work();
      co_return;
    };
  }

  std::shared_ptr<AgentStore> store = open();
  ScenewardCheckpointQueue queue{store};
  NotificationCenter notifications;
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>();
  testing::LogRecorder log;
  testing::FakeVault vault;
  DeviceIdentity device{std::shared_ptr<SecretVault>(&vault, [](auto*) {}),
                        std::make_shared<testing::FakeUserDefaults>(), [] { return std::string("Desk"); },
                        log.log()};

  std::string owner;
  std::optional<std::string> user;
  std::optional<std::string> token = "token-1";
  std::function<void(int)> atUser;  // with the number of the call within the pass
  int userCalls = 0;
  std::function<Task<>()> atBearer, atPreflight, atSave;
  std::optional<URLResponse> preflightAnswer, saveAnswer;  // each for one request; status 0 fails it
  std::vector<URLRequest> requests;

  std::shared_ptr<ScenewardPusher> pusher = std::make_shared<ScenewardPusher>(
      queue,
      ScenewardPushClient{.base = "https://cloud.test",
                          .bearer = [this]() -> Task<std::optional<std::string>> {
                            if (auto hook = atBearer) co_await hook();
                            co_return token;
                          },
                          .send = [this](URLRequest request) { return answer(std::move(request)); },
                          .identify = [this](URLRequest& request) { device.apply(request); }},
      [this] {
        if (const auto hook = atUser) hook(++userCalls);
        return user;
      },
      notifications, journal, log.log());
};

TEST_F(ScenewardPusherTest, ASaveGoesUpAsItWasHandedOverAndItsReceiptIsKept) {
  EXPECT_EQ(run(), both);
  EXPECT_EQ(statuses(), "acknowledged acknowledged");
  EXPECT_EQ(inFile("SELECT receipt FROM sceneward_checkpoint_queue ORDER BY created_at LIMIT 1"), receipt(1));
  ASSERT_EQ(requests.size(), 4U);
  using Headers = std::vector<std::pair<std::string, std::string>>;
  Headers headers{{"Authorization", "Bearer token-1"}, {"X-Sceneward-Source", "mac"}};
  headers.insert(headers.end(), {{"x-vorlane-device-id", device.id()},
                                 {"x-vorlane-device-class", "computer"},
                                 {"x-vorlane-device-label", "Desk"}});
  const auto& preflight = requests[0];
  EXPECT_EQ(preflight.method + " " + preflight.url, "GET https://cloud.test/api/v1/user/me");
  EXPECT_EQ(preflight.headers, headers);
  EXPECT_EQ(preflight.body, "");
  const auto& save = requests[1];
  EXPECT_EQ(save.method + " " + save.url,
            fmt::format("PUT https://cloud.test/api/v1/projects/{}/checkpoints", project));
  headers.emplace_back("Content-Type", "application/json");
  EXPECT_EQ(save.headers, headers);
  EXPECT_EQ(save.body, payload(1));
  EXPECT_EQ(save.timeout, std::chrono::seconds(60));
  EXPECT_FALSE(save.followRedirects);
  EXPECT_EQ(sent(), "P1P2");
  EXPECT_NE(json::stringOr(*json::object(journal->report(owner), "checkpoints"), "lastSuccess"), "");

  EXPECT_EQ(run(), "") << "nothing is sent twice";
  EXPECT_EQ(sent(), "");
  user = std::nullopt;
  push(3);
  EXPECT_EQ(run(), "") << "nobody is signed in";
  atUser = [](int) { throw Failure("the vault is locked"); };
  EXPECT_EQ(run(), "") << "nor is somebody who cannot be told";
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ScenewardPusherTest, AStatusBlocksTheSaveForGoodOrHoldsBackAllBehindIt) {
  for (const bool preflight : {true, false}) {
    for (const int status : {400, 404, 409, 410, 413, 422, 401, 403, 429, 500, 503, 302, 199, 0}) {
      SCOPED_TRACE(fmt::format("{} of {}", status, preflight ? "preflight" : "save"));
      freshOwner(fmt::format("o-{}-{}", preflight, status));
      (preflight ? preflightAnswer : saveAnswer) = URLResponse{status, {}, {}, "token-1"};
      const auto head = std::string(preflight ? "P" : "P1");
      const auto outcome = run();
      if (status == 410) {
        EXPECT_EQ(outcome, "1 blocked");
        EXPECT_EQ(statuses(), "");
        EXPECT_EQ(sent(), head);
        EXPECT_THROW(push(3), ScenewardCheckpointRequest::QueueError);
      } else if (std::set{400, 404, 409, 413, 422}.contains(status)) {
        EXPECT_EQ(outcome, "1 blocked, 2 pushed 4");
        EXPECT_EQ(statuses(), "blocked acknowledged");
        EXPECT_EQ(sent(), head + "P2");
        EXPECT_EQ(lastError(), "") << "ended by the success after it";
      } else {
        EXPECT_EQ(outcome, failed);
        EXPECT_EQ(statuses(), "pending pending");
        EXPECT_EQ(sent(), head);
        EXPECT_EQ(lastError(),
                  status == 0 ? "Connection refused" : fmt::format("Cloud Save returned HTTP {}", status));
        EXPECT_THAT(log.take(), ElementsAre(remains));
        EXPECT_EQ(run(), both) << "the next pass picks up where it stopped";
        EXPECT_EQ(sent(), "P1P2");
      }
      EXPECT_THAT(log.take(), IsEmpty());
    }
  }
}

TEST_F(ScenewardPusherTest, WithoutATokenAClearYesAndAMatchingReceiptTheSaveStaysPending) {
  for (const auto& none : {std::optional<std::string>(), std::optional(std::string())}) {
    token = none;
    EXPECT_EQ(run(), failed);
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(lastError(), "Nobody is signed in for the Cloud Save.");
  }
  token = "token-1";
  std::vector<std::string> profiles{"", "nonsense", "[]", "{}"}, receipts = profiles;
  for (const auto& [part, by] :
       std::initializer_list<std::pair<const char*, const char*>>{{R"("o")", R"("O")"},
                                                                  {R"("o")", "1"},
                                                                  {"subject", "user"},
                                                                  {R"({"cloudProjectWrite":true})", "[true]"},
                                                                  {R"({"cloudProjectWrite":true})", "{}"},
                                                                  {"true", "false"},
                                                                  {"true", "1"},
                                                                  {"true", R"("true")"}}) {
    profiles.push_back(replaced(profile(), part, by));
  }
  for (const auto& [part, by] :
       std::initializer_list<std::pair<const char*, const char*>>{{"0001", "0002"},
                                                                  {R"("checkpointId")", R"("id")"},
                                                                  {"aaaa", "AAAA"},
                                                                  {":4", ":5"},
                                                                  {":4", ":3"},
                                                                  {":4", ":4.0"},
                                                                  {":4", R"(:"4")"},
                                                                  {"2026-03-01T", "yesterday "},
                                                                  {"committedAt", "at"}}) {
    receipts.push_back(replaced(receipt(1), part, by));
  }
  for (const auto* bodies : {&profiles, &receipts}) {
    for (const auto& body : *bodies) {
      SCOPED_TRACE(body);
      (bodies == &profiles ? preflightAnswer : saveAnswer) = URLResponse{200, {}, {}, body};
      EXPECT_EQ(run(), failed);
      EXPECT_EQ(sent(), bodies == &profiles ? "P" : "P1");
    }
  }
  EXPECT_EQ(statuses(), "pending pending");
  saveAnswer = URLResponse{201, {}, {}, replaced(replaced(receipt(1), "abcdef", "ABCDEF"), ".5Z", "Z")};
  EXPECT_EQ(run(), both);
}

TEST_F(ScenewardPusherTest, WhateverTakesTheFenceDownAtAnAwaitStopsThePassThere) {
  using enum Change;
  std::function<Task<>()>* const moments[] = {&atBearer, &atPreflight, &atSave};
  const std::string sentByThen[] = {"", "P", "P1"};
  for (const auto change : {signOut, otherAccount, refresh, cancelProject, erase, unreadable}) {
    for (int moment = 0; moment < 3; ++moment) {
      SCOPED_TRACE(fmt::format("change {} at await {}", static_cast<int>(change), moment));
      freshOwner(fmt::format("o-{}-{}", static_cast<int>(change), moment));
      *moments[moment] = doing([&] { make(change); });
      EXPECT_EQ(run(), failed);
      *moments[moment] = nullptr;
      EXPECT_EQ(sent(), sentByThen[moment]);
      EXPECT_EQ(statuses(), "pending pending");
      EXPECT_EQ(lastError(), "The account changed during the Cloud Save, or the save was taken back.");
      EXPECT_THAT(log.take(), ElementsAre(remains));
      // What comes of it in the next pass.
      user = owner;
      if (change == unreadable) inFile("ALTER TABLE away RENAME TO sceneward_cancelled_projects");
      EXPECT_EQ(run(), change == cancelProject || change == erase ? "" : both);
      sent();
    }
  }
}

/// The user is asked for at 1 (the pass begins), 2 (the loop), 3 to 5 (the fences after token,
/// preflight and save), 6 (before the receipt is kept), 7 (the loop). A refresh at one of them
/// comes after the generation was read there, so that the next place finds it.
TEST_F(ScenewardPusherTest, TheFenceIsReadAtEachOfItsPlacesAndAReceiptThatComesTooLateIsDropped) {
  const std::string kept = "1 pushed 4";
  const std::array<std::pair<std::string, std::string>, 7> outcomesAndSent[] = {
      {{{"", ""}, {"", ""}, {failed, ""}, {failed, "P"}, {failed, "P1"}, {"", "P1"}, {kept, "P1"}}},
      {{{both, "P1P2"},
        {failed, ""},
        {failed, "P"},
        {failed, "P1"},
        {"", "P1"},
        {kept, "P1"},
        {kept + ", 2 failed Cloud Save pending", "P1"}}},
  };
  for (const auto change : {Change::signOut, Change::refresh}) {
    for (int call = 1; call <= 7; ++call) {
      SCOPED_TRACE(fmt::format("change {} at call {}", static_cast<int>(change), call));
      freshOwner(fmt::format("o-{}-{}", static_cast<int>(change), call));
      userCalls = 0;
      atUser = [&](int now) {
        if (now == call) make(change);
      };
      const auto& [outcome, requested] =
          outcomesAndSent[change == Change::refresh][static_cast<std::size_t>(call - 1)];
      EXPECT_EQ(run(), outcome);
      atUser = nullptr;
      EXPECT_EQ(sent(), requested);
      EXPECT_EQ(statuses(), outcome == both             ? "acknowledged acknowledged"
                            : outcome.starts_with(kept) ? "acknowledged pending"
                                                        : "pending pending");
      EXPECT_EQ(log.take().size(), outcome.ends_with("pending") ? 1U : 0U);
    }
  }
}

TEST_F(ScenewardPusherTest, WhatTheStoreRefusesIsTriedOnceInAPassAndKept) {
  inFile(
      "CREATE TRIGGER full BEFORE UPDATE ON sceneward_checkpoint_queue BEGIN SELECT RAISE(ABORT,'full'); "
      "END");
  saveAnswer = URLResponse{409, {}, {}, ""};
  EXPECT_EQ(run(), "1 blocked") << "the head cannot be blocked, and nothing overtakes it";
  EXPECT_EQ(sent(), "P1");
  EXPECT_EQ(run(), failed) << "it cannot be acknowledged";
  EXPECT_EQ(sent(), "P1");
  EXPECT_THAT(lastError(), HasSubstr("full"));
  inFile("DROP TRIGGER full");

  // Taken back by another program after the last look, while the database is that program's.
  OtherProgram other(folder.database());
  std::jthread committing;
  atSave = doing([&] { other.run("BEGIN IMMEDIATE"); });
  userCalls = 0;
  atUser = [&](int call) {
    if (call != 6) return;
    committing = std::jthread([&] {
      other.run("INSERT INTO sceneward_cancelled_projects(owner_hash,project_id) VALUES ('" +
                sha256Hex(owner) + "','" + project + "'); COMMIT");
    });
  };
  EXPECT_EQ(run(), failed);
  EXPECT_EQ(statuses(), "pending pending");
  EXPECT_EQ(sent(), "P1");

  log.take();
  inFile("UPDATE sceneward_checkpoint_queue SET payload=CAST(replace(payload,'archive','Archive') AS BLOB)");
  EXPECT_EQ(run(), "");
  EXPECT_THAT(log.take(), ElementsAre("Sceneward Save queue unavailable"));
  EXPECT_EQ(sent(), "");
}

TEST_F(ScenewardPusherTest, ASecondCallerGetsNothingWhileAPassRuns) {
  Event entered, gate;
  atPreflight = [&]() -> Task<> {
    entered.set();
    co_await gate.wait();
  };
  auto first = start(pusher->runOnce());
  await(entered.wait());
  EXPECT_EQ(run(), "");
  gate.set();
  EXPECT_EQ(text(first.get()), both);
  EXPECT_EQ(sent(), "P1P2");
}

TEST_F(ScenewardPusherTest, APassThatIsCancelledAtAnAwaitLeavesAllAsItWasAndTheNextOneRuns) {
  enum Moment { reading, bearer, preflight, save, acknowledging, blocking };
  for (const auto moment : {reading, bearer, preflight, save, acknowledging, blocking}) {
    SCOPED_TRACE(static_cast<int>(moment));
    freshOwner(fmt::format("o-{}", static_cast<int>(moment)));
    auto group = std::make_shared<TaskGroup>();
    const auto never = std::make_shared<Event>();
    const auto cancelled = [group, never]() -> Task<> {
      group->cancel();
      co_await never->wait();
    };
    // A write that is asked for waits for another program meanwhile.
    OtherProgram other(folder.database());
    const auto cancelAtWrite = [&] {
      other.run("BEGIN IMMEDIATE");
      group->cancel();
    };
    userCalls = 0;
    atUser = [&](int call) {
      if (moment == reading && call == 2) group->cancel();
      if (moment == acknowledging && call == 6) cancelAtWrite();
    };
    if (moment == bearer) atBearer = cancelled;
    if (moment == preflight) atPreflight = cancelled;
    if (moment == save) atSave = cancelled;
    if (moment == blocking) {
      saveAnswer = URLResponse{409, {}, {}, ""};
      atSave = doing(cancelAtWrite);
    }
    group->spawn(runtime.concurrent(), "pass", [this]() -> Task<> { co_await pusher->runOnce(); });
    await(group->join());
    other.run("COMMIT");
    store->dbWriter().write([](Database&) {});  // those before it have been made
    atUser = nullptr;
    atBearer = atPreflight = atSave = nullptr;
    saveAnswer = std::nullopt;
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(lastError(), moment == blocking ? "Cloud Save returned HTTP 409" : "");
    if (moment < acknowledging) EXPECT_EQ(statuses(), "pending pending");
    EXPECT_EQ(run(), moment < acknowledging ? both : "2 pushed 4");
    EXPECT_EQ(statuses(), moment == blocking ? "blocked acknowledged" : "acknowledged acknowledged");
    sent();
  }
}

}  // namespace
}  // namespace vorlane
