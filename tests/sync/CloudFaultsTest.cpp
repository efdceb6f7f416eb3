#include "sync/LedgerlyPusher.h"
#include "sync/RecentsSyncFetcher.h"
#include "tests/sync/CloudBench.h"
#include "tests/sync/SaveBench.h"

#include <fmt/format.h>

#include <functional>
#include <set>
#include <thread>
#include <variant>

namespace vorlane {
namespace {

using devcloud::Fault;
using devcloud::FaultCut;
using std::chrono::milliseconds;

class CloudFaults : public CloudBench {
 protected:
  RecentsSyncFetcher::Settings fetching() {
    return {.recents = {store, std::make_shared<StoreNotifications>(signals, runtime.io())},
            .ledgerlyStore = sheets,
            .scenewardStore = queriesOn<ScenewardQueries>(store),
            .currentUserID = currentUser(),
            .bearer = bearer(),
            .runner = network(),
            .ledgerlyBase = cloud.base(),
            .scenewardBase = cloud.base(),
            .log = log.log(),
            .journal = journal,
            .exchange = exchange};
  }
};

// Sheets ---------------------------------------------------------------------------------

class SheetFaults : public CloudFaults {
 protected:
  LedgerlyPusher pusher{
      sheets,        LedgerlyPushClient{.base = cloud.base(), .bearer = bearer(), .send = network()},
      currentUser(), log.log(),
      journal,       exchange};

  /// A sheet with one category, dirty.
  std::string dirtySheet(const std::string& owner = "auth0|ana") {
    const auto id = newUppercaseUUID();
    await(sheets.save({.id = id,
                       .ownerID = owner,
                       .title = "Night",
                       .data = R"({"categories":[{"id":"c","items":[],"name":"First"}]})",
                       .createdAt = present,
                       .updatedAt = present}));
    return id;
  }
  void edit(const std::string& id, const std::string& name) {
    present += std::chrono::seconds(1);
    await(sheets.mutateDocument(
        id, [name](JSONMap& document) { document["categories"].as_array()[0].as_object()["name"] = name; }));
  }
  LedgerlyPusher::Outcome pass(const std::string& id) {
    auto outcomes = await(pusher.runOnce());
    return outcomes.contains(id) ? outcomes.at(id) : LedgerlyPusher::Failed{"not tried"};
  }
  std::string cloudNames() {
    std::string names;
    for (const auto& sheet : cloud.sheets("auth0|ana")) {
      names += std::string(sheet.data.at("categories").at(0).at("name").as_string()) + " ";
    }
    return names;
  }
  bool inStep(const std::string& id) {
    const auto row = sheets.fetch(id);
    const auto all = cloud.sheets("auth0|ana");
    return row && row->syncedAt == row->updatedAt &&
           std::ranges::any_of(all, [&](const devcloud::Sheet& sheet) { return sheet.id == row->remoteID; });
  }
};

TEST_F(SheetFaults, OfACreateEndInOneSheetUnlessTheCloudsAnswerWasLost) {
  for (const auto& trouble : troubles()) {
    SCOPED_TRACE(trouble.name);
    const auto before = cloud.sheets("auth0|ana").size();
    const auto id = dirtySheet();
    during(trouble, "POST", "/api/user/sheets", [&] {
      EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Failed>(pass(id)));
      EXPECT_FALSE(sheets.fetch(id)->remoteID);
    });
    if (trouble.late) until([&] { return cloud.sheets("auth0|ana").size() > before; });
    EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Created>(pass(id)));
    EXPECT_TRUE(inStep(id));
    // The one exception: the cloud made the sheet, and nobody here knows its number.
    EXPECT_EQ(cloud.sheets("auth0|ana").size(), before + (trouble.effect ? 2U : 1U));
    EXPECT_TRUE(await(pusher.runOnce()).empty());
  }
}

TEST_F(SheetFaults, OfAnUpdateEndInTheSameSheetWithTheLastEdit) {
  const auto id = dirtySheet();
  pass(id);
  for (const auto& trouble : troubles()) {
    SCOPED_TRACE(trouble.name);
    edit(id, trouble.name);
    const auto path = fmt::format("/api/user/sheets/{}", *sheets.fetch(id)->remoteID);
    during(trouble, "PUT", path, [&] {
      const auto outcome = pass(id);
      if (trouble.name == "404") {
        EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::SkippedSheetDeleted>(outcome));
        EXPECT_TRUE(await(pusher.runOnce()).empty());  // not asked about again
        edit(id, trouble.name);
      } else if (trouble.empty200) {
        // A good status is the cloud's word, whatever stands below it; the next edit carries all.
        EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Updated>(outcome));
        edit(id, trouble.name);
      } else {
        EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Failed>(outcome));
        EXPECT_TRUE(sheets.fetch(id)->isDirty());
      }
    });
    if (trouble.late) until([&] { return cloudNames() == trouble.name + " "; });
    EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Updated>(pass(id)));
    EXPECT_TRUE(inStep(id));
    EXPECT_EQ(cloudNames(), trouble.name + " ");
  }
}

TEST_F(SheetFaults, EditsAndChangesOfAccountDuringAnUploadLoseNothing) {
  const auto id = dirtySheet();
  pass(id);
  const auto path = fmt::format("/api/user/sheets/{}", *sheets.fetch(id)->remoteID);
  const std::pair<const char*, std::function<void()>> meanwhile[] = {
      {"edited", [&] { edit(id, "Later"); }},
      {"signed out", [&] { signOut(); }},
      {"somebody else", [&] { signIn("auth0|bo"); }},
      {"refreshed", [&] { signIn("auth0|ana"); }},
  };
  for (const auto& [name, change] : meanwhile) {
    SCOPED_TRACE(name);
    edit(id, name);
    cloud.clearRequests();
    cloud.addFault({.path = path, .hold = true});
    auto running = start(pusher.runOnce());
    cloud.waitForRequests({.path = path}, 1);
    change();
    cloud.release();
    EXPECT_TRUE(std::holds_alternative<LedgerlyPusher::Updated>(running.get().at(id)));
    signIn("auth0|ana");
    const bool edited = std::string_view(name) == "edited";
    EXPECT_EQ(await(pusher.runOnce()).size(), edited ? 1U : 0U);
    EXPECT_EQ(cloudNames(), edited ? "Later " : std::string(name) + " ");
    EXPECT_TRUE(inStep(id));
  }
  EXPECT_TRUE(cloud.sheets("auth0|bo").empty());
}

// A list that is read between an upload and its mark tells of a sheet that no row owns up to,
// or takes a title back.
TEST_F(SheetFaults, AListIsNeverReadWhileASheetIsOnItsWay) {
  for (int i = 0; i < 100; ++i) dirtySheet();
  cloud.addFault({.path = "/api/user/sheets", .method = "POST", .times = 20, .delay = milliseconds(5)});
  RecentsSyncFetcher fetcher(fetching());
  auto pushing = start(pusher.runOnce());
  while (pushing.wait_for(milliseconds(0)) != std::future_status::ready) await(fetcher.syncOnce("auth0|ana"));
  EXPECT_EQ(pushing.get().size(), 100U);
  EXPECT_FALSE(overlapped);
  await(fetcher.syncOnce("auth0|ana"));
  EXPECT_EQ(text("SELECT COUNT(*), COUNT(DISTINCT remote_id) FROM ledgerly_sheets"), "100|100");
}

TEST_F(SheetFaults, TwoThousandSheetsGoUpOnceEachWhileOneOfThemIsRefusedAndTheCloudIsSlow) {
  for (int i = 0; i < 2000; ++i) dirtySheet();
  cloud.addFault({.path = "/api/user/sheets", .status = 500});
  cloud.addFault({.path = "/api/user/sheets", .times = 20, .delay = milliseconds(20)});
  const auto outcomes = await(pusher.runOnce());
  EXPECT_EQ(outcomes.size(), 2000U);
  EXPECT_EQ(cloud.sheets("auth0|ana").size(), 1999U);
  EXPECT_EQ(await(pusher.runOnce()).size(), 1U);
  EXPECT_EQ(cloud.sheets("auth0|ana").size(), 2000U);
  EXPECT_EQ(text("SELECT COUNT(DISTINCT remote_id) FROM ledgerly_sheets"), "2000");
}

// Saves of projects ----------------------------------------------------------------------

using SaveFaults = SaveBench;

TEST_F(SaveFaults, LeaveASaveInTheCloudExactlyOnceOrBlockedAndKeepTheOrder) {
  const std::set<std::string> blocking{"400", "404", "409", "410", "413", "422"};
  for (const bool atPreflight : {true, false}) {
    for (const auto& trouble : troubles()) {
      SCOPED_TRACE((atPreflight ? "preflight: " : "save: ") + trouble.name);
      const auto project = newLowercaseUUID(), other = newLowercaseUUID();
      const auto first = save(project).operationID;
      const auto second = save(other).operationID;
      const bool blocks = blocking.contains(trouble.name);
      const bool gone = trouble.name == "410";
      during(trouble, atPreflight ? "GET" : "PUT",
             atPreflight ? "/api/v1/user/me" : fmt::format("/api/v1/projects/{}/checkpoints", project), [&] {
               const auto outcomes = await(pusher->runOnce());
               EXPECT_EQ(said(outcomes, first), blocks ? "blocked" : "failed");
               EXPECT_EQ(said(outcomes, second), blocks && !gone ? "pushed" : "none");
               EXPECT_EQ(rowOf(first), gone ? "" : blocks ? "blocked" : "pending");
             });
      if (gone) {
        EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_checkpoint_queue"), "0");
        EXPECT_THROW(save(project), ScenewardCheckpointRequest::QueueError);
        inFile("DELETE FROM sceneward_checkpoint_deleted_owners");  // for the next trouble
        continue;
      }
      if (trouble.late && !atPreflight) until([&] { return commitsOf(first) == 1; });
      await(pusher->runOnce());
      EXPECT_EQ(rowOf(first), blocks ? "blocked" : "acknowledged");
      EXPECT_EQ(commitsOf(first), blocks ? 0U : 1U);
      EXPECT_EQ(rowOf(second), "acknowledged");
      EXPECT_EQ(commitsOf(second), 1U);
      EXPECT_TRUE(await(pusher->runOnce()).empty());
    }
  }
}

TEST_F(SaveFaults, StayPendingWhenTheReceiptOrThePermissionIsWrong) {
  const auto project = newLowercaseUUID();
  const auto request = save(project);
  const auto path = fmt::format("/api/v1/projects/{}/checkpoints", project);
  JSONMap receipt{{"checkpointId", request.checkpointID},
                  {"contentHash", request.contentHash},
                  {"committedManifestRevision", 2},
                  {"committedAt", "2026-03-01T12:00:00Z"}};
  cloud.addFault(devcloud::answerFault(path, receipt));
  EXPECT_EQ(said(await(pusher->runOnce()), request.operationID), "failed");
  cloud.clearFaults();
  cloud.setCapability("auth0|ana", false);
  cloud.clearRequests();
  EXPECT_EQ(said(await(pusher->runOnce()), request.operationID), "failed");
  EXPECT_TRUE(cloud.requests({.method = "PUT"}).empty());
  cloud.setCapability("auth0|ana", true);
  EXPECT_EQ(said(await(pusher->runOnce()), request.operationID), "pushed");
  const auto sent = cloud.requests({.method = "PUT"}).at(0);
  EXPECT_EQ(sent.header("X-Sceneward-Source"), "mac");
  EXPECT_EQ(sent.header("x-vorlane-device-id"), "device");
}

TEST_F(SaveFaults, ChangesDuringEachRequestEndThePassAndTheNextOneAgreesWithTheCloud) {
  const std::pair<const char*, std::function<void(const std::string&)>> meanwhile[] = {
      {"refreshed", [&](const std::string&) { notifications.post("com.vorlane.auth.changed"); }},
      {"signed out", [&](const std::string&) { signOut(); }},
      {"somebody else", [&](const std::string&) { signIn("auth0|bo"); }},
      {"cancelled",
       [&](const std::string& project) { await(queue.cancelProject("auth0|ana", project, {})); }},
  };
  for (const bool atPreflight : {true, false}) {
    for (const auto& [name, change] : meanwhile) {
      SCOPED_TRACE(fmt::format("{} at the {}", name, atPreflight ? "preflight" : "save"));
      const auto project = newLowercaseUUID();
      const auto operation = save(project).operationID;
      const std::string path =
          atPreflight ? "/api/v1/user/me" : fmt::format("/api/v1/projects/{}/checkpoints", project);
      cloud.clearRequests();
      cloud.addFault({.path = path, .hold = true});
      auto running = start(pusher->runOnce());
      cloud.waitForRequests({.path = path}, 1);
      change(project);
      cloud.release();
      EXPECT_NE(said(running.get(), operation), "pushed");
      signIn("auth0|ana");
      const bool cancelled = std::string_view(name) == "cancelled";
      EXPECT_EQ(rowOf(operation), cancelled ? "" : "pending");
      await(pusher->runOnce());
      EXPECT_EQ(rowOf(operation), cancelled ? "" : "acknowledged");
      EXPECT_EQ(commitsOf(operation), cancelled && atPreflight ? 0U : 1U);
    }
  }
  EXPECT_TRUE(cloud.commits("auth0|bo").empty());
}

// Lists ----------------------------------------------------------------------------------

TEST_F(CloudFaults, OfAListKeepWhatIsThereAndTheOtherListAndAreMadeGoodByTheNextPull) {
  cloud.putSheet({.owner = "auth0|ana", .name = "Night", .data = {{"categories", JSONArray()}}});
  cloud.putProject({.id = newLowercaseUUID(), .owner = "auth0|ana", .name = "Pier"});
  RecentsSyncFetcher fetcher(fetching());
  const std::pair<const char*, const char*> lists[] = {{"ledgerly", "/api/user/sheets"},
                                                       {"sceneward", "/api/v1/projects"}};
  const auto apps = [&] { return inFile("SELECT app FROM recents ORDER BY app"); };
  for (const auto& [app, path] : lists) {
    for (const auto& trouble : troubles()) {
      SCOPED_TRACE(fmt::format("{}: {}", app, trouble.name));
      inFile("DELETE FROM recents");
      log.take();
      during(trouble, "GET", path, [&] { await(fetcher.syncOnce("auth0|ana")); });
      EXPECT_EQ(apps(), std::string_view(app) == "ledgerly" ? "sceneward" : "ledgerly");
      const auto lines = log.take();
      ASSERT_EQ(lines.size(), 1U);
      EXPECT_THAT(lines[0], ::testing::StartsWith(fmt::format("RecentsSyncFetcher: {} pull failed ", app)));
      await(fetcher.syncOnce("auth0|ana"));
      EXPECT_EQ(apps(), "ledgerly sceneward");
    }
  }
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM ledgerly_sheets"), "1");
}

}  // namespace
}  // namespace vorlane
