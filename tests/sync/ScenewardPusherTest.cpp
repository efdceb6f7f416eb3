#include "tests/sync/CloudHarness.h"

#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"

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
/// comes after the epoch was read there, so that the next place finds it.
TEST_F(ScenewardPusherTest, TheFenceIsReadAtEachOfItsPlacesAndAReceiptThatComesTooLateIsDropped) {
  const std::string fails = "1 failed", first = "1 pushed 1", second = "2 pushed 2",
                    all = first + ", " + second, secondFails = first + ", 2 failed";
  const std::string pending = "Sceneward explicit Cloud Save remains pending",
                    unavailable = "Sceneward Save queue unavailable";
  const auto refresh = [&] { notifications.post(auth::changed); };
  // At each of the seven places: what the pass comes to, what it sends and logs, what the next pass
  // comes to, and which saves are in the cloud in the end.
  struct Row {
    const char* name;
    std::function<void()> change;
    Texts pushed, sent, logged, next, inCloud;
  };
  const Row rows[] = {
      {"somebody else",
       [&] { signIn(bo); },
       {"", "", fails, fails, fails, "", first},
       {"", "", "", "P", "P1", "P1", "P1"},
       {"", "", pending, pending, pending, "", ""},
       {all, all, all, all, all, all, second},
       Texts(7, "11")},
      {"refresh",
       refresh,
       {all, fails, fails, fails, "", first, secondFails},
       {"P1P2", "", "P", "P1", "P1", "P1", "P1"},
       {"", pending, pending, pending, "", "", pending},
       {"", all, all, all, all, second, second},
       Texts(7, "11")},
      {"cancelled project",
       [&] { await(queue.cancelProject(ana, project(1), {})); },
       {"", "", fails, fails, fails, fails, first},
       {"", "", "", "P", "P1", "P1", "P1"},
       {"", "", pending, pending, pending, pending, ""},
       Texts(7, ""),
       {"00", "00", "00", "00", "10", "10", "10"}},
      {"erased",
       [&] { await(queue.erase(ana)); },
       {"", "", fails, fails, fails, fails, first},
       {"", "", "", "P", "P1", "P1", "P1"},
       {"", "", pending, pending, pending, pending, ""},
       Texts(7, ""),
       {"00", "00", "00", "00", "10", "10", "10"}},
      {"unreadable",
       [&] { inFile("ALTER TABLE sceneward_cancelled_projects RENAME TO away"); },
       {"", "", fails, fails, fails, fails, first},
       {"", "", "", "P", "P1", "P1", "P1"},
       {unavailable, unavailable, pending, pending, pending, pending, unavailable},
       {all, all, all, all, all, all, second},
       Texts(7, "11")},
  };
  for (const auto& row : rows) {
    for (std::size_t place = 0; place < 7; ++place) {
      SCOPED_TRACE(fmt::format("{} at {}", row.name, place + 1));
      newRound(true);
      std::size_t calls = 0;
      atUser = [&] {
        if (calls++ == place) row.change();
      };
      EXPECT_EQ(pushSaves(), row.pushed[place]);
      EXPECT_EQ(sent(), row.sent[place]);
      EXPECT_EQ(fmt::format("{}", fmt::join(log.take(), " ")), row.logged[place]);
      // The next pass agrees with the cloud.
      atUser = nullptr;
      signIn(ana);
      inFile("ALTER TABLE away RENAME TO sceneward_cancelled_projects");
      inFile("DELETE FROM sceneward_checkpoint_deleted_owners");
      EXPECT_EQ(pushSaves(), row.next[place]);
      EXPECT_EQ(fmt::format("{}{}", commitsOf(1), commitsOf(2)), row.inCloud[place]);
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
