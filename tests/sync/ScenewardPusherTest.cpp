#include "tests/sync/CloudHarness.h"

#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"

#include <fstream>
#include <functional>
#include <iterator>

namespace vorlane {
namespace {

const std::string both = "1 pushed 1, 2 pushed 1";

class ScenewardPusherTest : public CloudHarness {
 protected:
  /// Two saves in a new round, of one project or of two.
  void newRound(bool oneProject = false) {
    ++round;
    save(1, project(1));
    save(2, project(oneProject ? 1 : 2), oneProject ? 1 : 0);
    cloud.clearRequests();
  }
  /// The requests since then: P for a preflight, a save by its number.
  std::string sent() {
    std::string sent;
    for (const auto& request : cloud.requests())
      sent +=
          request.method == "GET" ? 'P' : json::stringOr(parseJSONMap(request.body), "operationId").back();
    return sent;
  }
};

TEST_F(ScenewardPusherTest, ASaveGoesUpAsItWasHandedOverAndOnceAndASecondCallerGetsNothing) {
  meanwhile = [&](char) -> Task<> { EXPECT_THAT(co_await savePusher->runOnce(), IsEmpty()); };
  const auto payload = save(1, project(1));
  EXPECT_EQ(pushSaves(), "1 pushed 1");
  const auto commit = cloud.commits(ana).at(0);
  EXPECT_EQ(commit.payloadHash, sha256Hex(payload));
  EXPECT_EQ(inFile("SELECT receipt FROM sceneward_checkpoint_queue"), writeJSON(commit.receipt()));
  for (const auto& request : cloud.requests()) {
    EXPECT_EQ(request.header("X-Sceneward-Source"), "mac");
    EXPECT_EQ(request.header("x-id"), "device");
  }
  EXPECT_EQ(pushSaves(), "") << "nothing is sent twice";

  newRound();
  meanwhile = nullptr;
  for (const Text& token : {Text(), Text("")}) {
    become(ana, token);
    EXPECT_THAT(await(savePusher->runOnce()),
                ElementsAre(std::pair(operation(1), ScenewardPusher::Failed{"Cloud Save pending"})));
    EXPECT_EQ(lastError("checkpoints"), "Nobody is signed in for the Cloud Save.");
    EXPECT_THAT(log.take(), ElementsAre("Sceneward explicit Cloud Save remains pending"));
  }
  become({}, "t");
  EXPECT_EQ(pushSaves(), "") << "nobody is signed in";
  atUser = [] { throw Failure("the vault is locked"); };
  EXPECT_EQ(pushSaves(), "") << "nor is somebody who cannot be told";
  EXPECT_EQ(sent(), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

/// The user is asked for at 1 (the pass begins), 2 (the loop), 3 to 5 (the fences after token,
/// preflight and save), 6 (before the receipt is kept), 7 (the loop). A refresh at one of them
/// comes after the epoch was read there, so that the next place finds it. What comes of each
/// change at each place stands in golden/fence.txt: the pass, what it sent and logged; the next
/// pass, which agrees with the cloud; and how often the cloud has each of the two saves.
TEST_F(ScenewardPusherTest, TheFenceIsReadAtEachOfItsPlacesAndAReceiptThatComesTooLateIsDropped) {
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"somebody else", [&] { signIn(bo); }},
      {"a refresh", [&] { notifications.post(auth::changed); }},
      {"a cancellation", [&] { await(queue.cancelProject(ana, project(1), {})); }},
      {"an erasure", [&] { await(queue.erase(ana)); }},
      {"no tombstones", [&] { inFile("ALTER TABLE sceneward_cancelled_projects RENAME TO away"); }}};
  std::string observed;
  for (const auto& [change, make] : changes) {
    for (int place = 1; place <= 7; ++place) {
      newRound(true);
      int calls = 0;
      atUser = [&] {
        if (++calls == place) make();
      };
      const auto pass = pushSaves(), requests = sent(),
                 logged = fmt::format("{}", fmt::join(log.take(), " "));
      atUser = nullptr;
      signIn(ana);
      inFile("ALTER TABLE away RENAME TO sceneward_cancelled_projects");
      inFile("DELETE FROM sceneward_checkpoint_deleted_owners");
      const auto next = pushSaves();
      observed += fmt::format("{} at {}: {} | sent {} | {} | then {} | {}{}\n", change, place, pass, requests,
                              logged, next, commitsOf(1), commitsOf(2));
    }
  }
  std::ifstream golden(GOLDEN "fence.txt");
  EXPECT_EQ(observed, std::string(std::istreambuf_iterator<char>(golden), {}));
  EXPECT_THAT(cloud.commits(bo), IsEmpty());
}

TEST_F(ScenewardPusherTest, WhatTheStoreRefusesIsTriedOnceInAPassAndKept) {
  newRound();
  inFile(
      "CREATE TRIGGER full BEFORE UPDATE ON sceneward_checkpoint_queue BEGIN SELECT RAISE(ABORT,'full'); "
      "END");
  cloud.addFault({.path = projectsPath, .prefix = true, .status = 409});
  for (const bool blocking : {true, false}) {
    EXPECT_EQ(pushSaves(), blocking ? "1 blocked" : "1 failed") << "nothing overtakes it";
    EXPECT_EQ(sent(), blocking ? "P1" : "P1P1");
  }
  EXPECT_THAT(lastError("checkpoints"), HasSubstr("full"));
  inFile("DROP TRIGGER full");
  EXPECT_EQ(pushSaves(), both);
}

TEST_F(ScenewardPusherTest, APassThatIsCancelledAtAnAwaitLeavesAllAsItWasAndTheNextOneRuns) {
  // Reading the queue, the Token, before the preflight (G) and the save (P), Acknowledging.
  for (const char moment : {'R', 'T', 'G', 'P', 'A'}) {
    SCOPED_TRACE(moment);
    newRound();
    Event never;
    OtherProgram other(folder.database());
    int calls = 0;
    atUser = [&] {
      ++calls;
      if (moment == 'R' && calls == 2) cancel();
      if (moment != 'A' || calls != 6) return;
      other.run("BEGIN IMMEDIATE");  // so that the write has to wait
      cancel();
    };
    meanwhile = [&](char place) -> Task<> {
      if (moment != place) co_return;
      cancel();
      co_await never.wait();
    };
    pushSaves();
    other.run("COMMIT");
    store->dbWriter().write([](Database&) {});  // those before it have been made
    atUser = nullptr;
    meanwhile = nullptr;
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(lastError("checkpoints"), "");
    EXPECT_EQ(pushSaves(), moment == 'A' ? "2 pushed 1" : both);
  }
}

}  // namespace
}  // namespace vorlane
