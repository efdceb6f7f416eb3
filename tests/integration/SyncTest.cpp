#include "Spine.h"

#include "base/Identifiers.h"
#include "base/JSONArguments.h"
#include "tests/support/CheckpointPayload.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

namespace vorlane::test {
namespace {

constexpr char ana[] = "auth0|ana";

/// The agent with the cloud, and what both hold of Ana's work.
class Sync : public testing::Test {
 protected:
  Sync() { spine.startServing(ana); }

  std::string sheet(const std::string& title) {
    const auto made = spine.result("ledgerly_create_sheet", {{"title", title}});
    return std::string(made.at("sheet").at("id").as_string());
  }
  void item(const std::string& sheetID, const std::string& name) {
    spine.result("ledgerly_add_item", {{"sheetId", sheetID}, {"name", name}, {"categoryName", "Light"}});
  }
  JSONMap ctl(std::vector<std::string> words) {
    const auto finished = runProgram("vorlanectl", words, spine.agent.environment());
    if (finished.exitCode != 0) throw Failure(finished.error);
    return parseJSONMap(finished.out);
  }
  /// Queues a save as the Sceneward application does; its operation id.
  std::string save(const std::string& project, std::int64_t revision) {
    const auto operation = newLowercaseUUID();
    const auto file = spine.folder.path() / "save.json";
    std::ofstream(file) << checkpointPayload(project, operation, revision);
    ctl({"checkpoint", "enqueue", "--owner", ana, "--project", project, file.string()});
    return operation;
  }
  bool nothingWaits() {
    const auto status = ctl({"status"});
    return status.at("pending").at("sheets") == 0 && status.at("pending").at("checkpoints") == 0;
  }
  /// A pass begins when an agent starts, so that no test waits for the next minute.
  void restart() {
    spine.agent.start();
    ASSERT_TRUE(spine.eventuallyAnswers(200));
  }
  std::size_t itemsInTheCloud() {
    std::size_t count = 0;
    for (const auto& each : spine.cloud.call(&Sheets::ownedBy, ana)) {
      for (const auto& category : each.data.at("categories").as_array())
        count += category.at("items").as_array().size();
    }
    return count;
  }

  Spine spine;
};

TEST_F(Sync, CarriesEditsUpWithTheNextPassAndASaveAtOnce) {
  const auto id = sheet("Night");
  item(id, "Lamp");
  EXPECT_EQ(ctl({"status"}).at("pending").at("sheets"), 1);
  spine.agent.stop(SIGTERM);
  restart();
  EXPECT_TRUE(eventually([&] { return itemsInTheCloud() == 1 && nothingWaits(); }));

  const auto project = newLowercaseUUID();
  const auto operation = save(project, 0);
  EXPECT_TRUE(eventually([&] { return spine.cloud.call(&Projects::commits, ana).size() == 1; },
                         std::chrono::seconds(2)));
  EXPECT_EQ(spine.cloud.call(&Projects::commits, ana)[0].operationID, operation);
  EXPECT_TRUE(eventually([&] { return nothingWaits(); }));
  const auto status = ctl({"status"});
  for (const auto* service : {"sheets", "checkpoints", "recents"}) {
    EXPECT_TRUE(status.at("sync").at(service).at("lastSuccess").is_string()) << service;
    EXPECT_TRUE(status.at("sync").at(service).at("lastError").is_null()) << service;
  }
  const auto sent = spine.cloud.call(
      &RequestLog::find, {.method = "PUT", .path = "/api/v1/projects/" + project + "/checkpoints"});
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_TRUE(canonicalUUID(sent[0].header("x-vorlane-device-id").value_or("")));
}

struct KillPoint {
  const char* name;
  const char* method;
  /// "SHEET" stands for the sheet's number, "PROJECT" for the project.
  std::string path;
  /// Whether the cloud still does what it was asked to, after the agent's end.
  bool lands;
  bool isSheet;
};

TEST_F(Sync, AKillDuringAnyRequestIsMadeGoodByTheNextStart) {
  const auto id = sheet("Night");
  item(id, "First");
  spine.agent.stop(SIGKILL);
  restart();
  ASSERT_TRUE(eventually([&] { return itemsInTheCloud() == 1 && nothingWaits(); }));
  const auto number = std::to_string(spine.cloud.call(&Sheets::ownedBy, ana).at(0).id);
  const auto project = newLowercaseUUID();
  const auto checkpoints = "/api/v1/projects/" + project + "/checkpoints";
  const KillPoint points[] = {
      {"an update that is lost", "PUT", "/api/user/sheets/" + number, false, true},
      {"an update that lands", "PUT", "/api/user/sheets/" + number, true, true},
      {"a preflight", "GET", "/api/v1/user/me", true, false},
      {"a save that is lost", "PUT", checkpoints, false, false},
      {"a save that lands", "PUT", checkpoints, true, false},
  };
  std::size_t items = 1, saves = 0;
  for (const auto& point : points) {
    SCOPED_TRACE(point.name);
    spine.cloud.call(&RequestLog::clear);
    Fault fault{.path = point.path, .method = point.method, .hold = true};
    if (!point.lands) fault.cut = FaultCut::before;
    spine.cloud.call(&Faults::add, std::move(fault));
    if (point.isSheet) {
      item(id, point.name);
      ++items;
      spine.agent.stop(SIGKILL);
      spine.agent.start();  // whose first pass meets the fault
    } else {
      save(project, static_cast<std::int64_t>(saves++));
    }
    spine.cloud.call(&RequestLog::waitFor, {.method = point.method, .path = point.path}, 1,
                     std::chrono::seconds(10));
    spine.agent.stop(SIGKILL);
    spine.cloud.call(&Faults::release);
    spine.cloud.call(&Faults::clear);
    restart();
    EXPECT_TRUE(eventually([&] { return nothingWaits(); })) << spine.agent.log();
    EXPECT_EQ(itemsInTheCloud(), items);
    EXPECT_EQ(spine.cloud.call(&Sheets::ownedBy, ana).size(), 1U);
    EXPECT_EQ(spine.cloud.call(&Projects::commits, ana).size(), saves);
  }
}

// The one exception: the cloud made the sheet, and the agent ended before it noted the number.
TEST_F(Sync, AKillDuringACreateThatLandsLeavesASecondSheetAndOneThatIsLostDoesNot) {
  std::size_t expected = 0;
  for (const bool lands : {false, true}) {
    SCOPED_TRACE(lands);
    const auto id = sheet("Night");
    spine.agent.stop(SIGKILL);
    Fault fault{.path = "/api/user/sheets", .method = "POST", .hold = true};
    if (!lands) fault.cut = FaultCut::before;
    spine.cloud.call(&Faults::add, std::move(fault));
    spine.cloud.call(&RequestLog::clear);
    spine.agent.start();
    spine.cloud.call(&RequestLog::waitFor, {.method = "POST", .path = "/api/user/sheets"}, 1,
                     std::chrono::seconds(10));
    spine.agent.stop(SIGKILL);
    spine.cloud.call(&Faults::release);
    spine.cloud.call(&Faults::clear);
    restart();
    EXPECT_TRUE(eventually([&] { return nothingWaits(); }));
    expected += lands ? 2 : 1;
    EXPECT_EQ(spine.cloud.call(&Sheets::ownedBy, ana).size(), expected);
  }
}

TEST_F(Sync, BothAgreeAfterTheAgentAndTheCloudHaveEndedInAnyOrder) {
  const auto id = sheet("Night");
  item(id, "Lamp");
  const auto project = newLowercaseUUID();
  for (const bool agentFirst : {true, false}) {
    SCOPED_TRACE(agentFirst);
    if (agentFirst) spine.agent.stop(SIGKILL);
    spine.cloud.stop();
    if (!agentFirst) spine.agent.stop(SIGKILL);
    const auto operation = save(project, agentFirst ? 0 : 1);
    spine.cloud.start();
    spine.agent.start();
    EXPECT_TRUE(eventually([&] { return nothingWaits(); })) << spine.agent.log();
    EXPECT_EQ(itemsInTheCloud(), 1U);
    EXPECT_EQ(spine.cloud.call(&Projects::commits, ana).back().operationID, operation);
  }
  EXPECT_EQ(spine.cloud.call(&Sheets::ownedBy, ana).size(), 1U);
}

TEST_F(Sync, TheArchiveAndTheAttachmentsAreReachedThroughTheTools) {
  const auto landed = spine.result(
      "ledgerly_import_sheet",
      {{"title", "Pier"},
       {"request", "Everything for the pier"},
       {"categories",
        JSONArray{JSONMap{{"name", "Light"}, {"items", JSONArray{JSONMap{{"name", "Lamp"}}}}}}}});
  ASSERT_TRUE(eventually([&] { return spine.cloud.call(&AILists::ownedBy, ana).size() == 1; }));
  EXPECT_EQ(spine.cloud.call(&AILists::ownedBy, ana)[0].name, "Pier");
  spine.agent.stop(SIGTERM);
  restart();
  ASSERT_TRUE(
      eventually([&] { return nothingWaits() && spine.cloud.call(&Sheets::ownedBy, ana).size() == 1; }));

  const auto found = spine.result("ledgerly_find_attachments", {{"query", "camera package"}});
  ASSERT_FALSE(found.at("hits").as_array().empty());
  const auto ref = std::string(found.at("hits").at(0).at("ref").as_string());
  const auto id = std::string(landed.at("sheet").at("id").as_string());
  const auto attached = spine.result(
      "ledgerly_attach_existing",
      {{"sheetId", id},
       {"sources", JSONArray{JSONMap{{"ref", ref},
                                     {"name", "Manual"},
                                     {"newItem", JSONMap{{"category", "Light"}, {"name", "Manual"}}}}}}});
  EXPECT_TRUE(attached.at("sheet").is_null());
  EXPECT_FALSE(attached.contains("note"));
  EXPECT_EQ(itemsInTheCloud(), 2U);
  EXPECT_EQ(spine.result("ledgerly_list_items", {{"sheetId", id}}).at("items").as_array().size(), 2U);
  EXPECT_TRUE(nothingWaits()) << "what came from the cloud is not sent back to it";
}

}  // namespace
}  // namespace vorlane::test
