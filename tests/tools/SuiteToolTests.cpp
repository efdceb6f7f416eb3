#include "tools/ToolHarness.h"
#include "tools/suite/VorlaneToolModule.h"

namespace vorlane {
namespace {

class SuiteTools : public ToolHarness {
 protected:
  SuiteTools() {
    module = std::make_shared<VorlaneToolModule>(recents, [this] { return profile; });
  }
  void open(const std::string& app, const std::string& entityID, int seconds, const std::string& user = "o") {
    await(recents.record(user, app, entityID, present + std::chrono::seconds(seconds)));
  }
  std::string call(const std::string& tool) { return ToolHarness::call(tool, "{}"); }

  RecentsQueries recents{StoreTest::open(), std::make_shared<StoreNotifications>(signals, runtime.io())};
  JSONMap profile{{"sub", "o"}};
};

TEST_F(SuiteTools, GiveTheProfileAsItIsAtTheCall) {
  expectShown("vorlane.txt");
  EXPECT_EQ(call("get_user"), "{'sub':'o'}");
  profile["mcp_access"] = true;
  EXPECT_EQ(call("get_user"), "{'mcp_access':true,'sub':'o'}");
}

TEST_F(SuiteTools, RecentsAreListedAsTheyStandUpToTheLimit) {
  EXPECT_EQ(call("get_recent"), "{'recents':[]}");
  for (int i = 0; i < 25; ++i) open("ledgerly", std::to_string(i), i);
  open("other", "x", 100, "p");
  EXPECT_EQ(ToolHarness::call("get_recent", "{'limit':1}"),
            "{'recents':[{'app':'ledgerly','entityId':'24','openedAt':'2026-03-01T12:00:24Z'}]}");
  for (const auto& [limit, expected] : {std::pair("null", 20U), {"2.5", 20U}, {"30", 25U}, {"-3", 0U}}) {
    const auto answer = unquoted(ToolHarness::call("get_recent", "{'limit':" + std::string(limit) + "}"));
    EXPECT_EQ(answer.at("recents").as_array().size(), expected) << limit;
  }
}

TEST_F(SuiteTools, TheContextIsTheNewestEntryOfEachApplicationAmongFifty) {
  EXPECT_EQ(call("get_context"), "{'ledgerly':null,'sceneward':null}");
  open("sceneward", "project", 0);
  open("player", "clip", 99);
  for (int i = 1; i <= 48; ++i) open("ledgerly", std::to_string(i), i);
  EXPECT_EQ(call("get_context"),
            "{'ledgerly':{'entityId':'48','openedAt':'2026-03-01T12:00:48Z'},"
            "'sceneward':{'entityId':'project','openedAt':'2026-03-01T12:00:00Z'}}");
  open("ledgerly", "49", 49);  // with the clip these are fifty newer ones
  EXPECT_EQ(call("get_context"),
            "{'ledgerly':{'entityId':'49','openedAt':'2026-03-01T12:00:49Z'},'sceneward':null}");
}

}  // namespace
}  // namespace vorlane
