#include "tests/sync/CloudHarness.h"

#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"

#include <map>

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
    cloud.call(&RequestLog::clear);
  }
  /// The requests since then: P for a preflight, a save by its number.
  std::string sent() {
    std::string sent;
    for (const auto& request : cloud.call(&RequestLog::find, {}))
      sent +=
          request.method == "GET" ? 'P' : json::stringOr(parseJSONMap(request.body), "operationId").back();
    return sent;
  }
};

TEST_F(ScenewardPusherTest, ASaveGoesUpAsItWasHandedOverAndOnceAndASecondCallerGetsNothing) {
  meanwhile = [&](char) -> Task<> { EXPECT_THAT(co_await savePusher->runOnce(), IsEmpty()); };
  const auto payload = save(1, project(1));
  EXPECT_EQ(pushSaves(), "1 pushed 1");
  const auto commit = cloud.call(&Projects::commits, ana).at(0);
  EXPECT_EQ(commit.payloadHash, sha256Hex(payload));
  EXPECT_EQ(inFile("SELECT receipt FROM sceneward_checkpoint_queue"), writeJSON(commit.receipt()));
  for (const auto& request : cloud.call(&RequestLog::find, {})) {
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
/// comes after the generation was read there, so that the next place finds it.
TEST_F(ScenewardPusherTest, TheFenceIsReadAtEachOfItsPlacesAndAReceiptThatComesTooLateIsDropped) {
  enum Change { somebodyElse, refresh, cancelProject, erase, unreadable };
  const std::map<char, std::string> outcomes{{'-', ""},
                                             {'f', "1 failed"},
                                             {'k', "1 pushed 1"},
                                             {'x', "1 pushed 1, 2 failed"},
                                             {'b', "1 pushed 1, 2 pushed 2"}};
  struct {
    const char *outcomes, *sent[7];
  } const rows[] = {{"--fff-k", {"", "", "", "P", "P1", "P1", "P1"}},
                    {"bfff-kx", {"P1P2", "", "P", "P1", "P1", "P1", "P1"}},
                    {"--ffffk", {"", "", "", "P", "P1", "P1", "P1"}}};
  for (const auto change : {somebodyElse, refresh, cancelProject, erase, unreadable}) {
    for (int place = 1; place <= 7; ++place) {
      SCOPED_TRACE(fmt::format("change {} at {}", static_cast<int>(change), place));
      newRound(true);
      int calls = 0;
      atUser = [&] {
        if (++calls != place) return;
        if (change == somebodyElse) signIn(bo);
        if (change == refresh) notifications.post(auth::changed);
        if (change == cancelProject) await(queue.cancelProject(ana, project(1), {}));
        if (change == erase) await(queue.erase(ana));
        if (change == unreadable) inFile("ALTER TABLE sceneward_cancelled_projects RENAME TO away");
      };
      const auto& row = rows[std::min<int>(change, cancelProject)];
      const char outcome = row.outcomes[place - 1];
      EXPECT_EQ(pushSaves(), outcomes.at(outcome));
      EXPECT_EQ(sent(), row.sent[place - 1]);
      EXPECT_EQ(fmt::format("{}", fmt::join(log.take(), " ")),
                outcome == 'f' || outcome == 'x' ? "Sceneward explicit Cloud Save remains pending"
                : change == unreadable           ? "Sceneward Save queue unavailable"
                                                 : "");
      if (outcome == 'f' && place < 6)
        EXPECT_THAT(lastError("checkpoints"), HasSubstr("The account changed"));

      // The next pass agrees with the cloud.
      atUser = nullptr;
      signIn(ana);
      inFile("ALTER TABLE away RENAME TO sceneward_cancelled_projects");
      inFile("DELETE FROM sceneward_checkpoint_deleted_owners");
      const bool removed = change == cancelProject || change == erase,
                 kept = outcome == 'k' || outcome == 'x';
      EXPECT_EQ(pushSaves(), removed || outcome == 'b' ? "" : kept ? "2 pushed 2" : outcomes.at('b'));
      EXPECT_EQ(commitsOf(1), removed && place < 5 ? 0 : 1);
      EXPECT_EQ(commitsOf(2), removed ? 0 : 1);
    }
  }
  EXPECT_THAT(cloud.call(&Projects::commits, bo), IsEmpty());
}

TEST_F(ScenewardPusherTest, WhatTheStoreRefusesIsTriedOnceInAPassAndKept) {
  newRound();
  inFile(
      "CREATE TRIGGER full BEFORE UPDATE ON sceneward_checkpoint_queue BEGIN SELECT RAISE(ABORT,'full'); "
      "END");
  cloud.call(&Faults::add, {.path = projectsPath, .prefix = true, .status = 409});
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
