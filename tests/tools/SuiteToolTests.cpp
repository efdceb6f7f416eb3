#include "tools/ToolBench.h"
#include "tools/suite/VorlaneToolModule.h"

namespace vorlane {
namespace {

class SuiteTools : public ToolBench {
 protected:
  void open(const std::string& app, const std::string& entityID, int seconds, const std::string& user = "o") {
    await(recents.record(user, app, entityID, present + std::chrono::seconds(seconds)));
  }
  std::string call(std::string_view tool, const std::string& arguments = "{}") {
    return answer(module, tool, arguments);
  }
  std::size_t count(const std::string& arguments) {
    return unquoted(call("get_recent", arguments)).at("recents").as_array().size();
  }

  RecentsQueries recents{StoreTest::open(), std::make_shared<StoreNotifications>(signals, runtime.io())};
  JSONMap profile{{"sub", "o"}};
  VorlaneToolModule module{recents, [this] { return profile; }};
};

TEST_F(SuiteTools, AreThreeAndAskForNothing) {
  std::string list;
  for (const auto& tool : module.tools())
    list += tool.name + ": " + tool.description + " " + quoted(writeJSON(tool.inputSchema)) + "\n";
  EXPECT_EQ(list,
            "vorlane_get_user: Return the signed-in user's profile (sub, name, email, tier, mcp_access). "
            "{'properties':{},'type':'object'}\n"
            "vorlane_get_recent: Return the user's MRU across both apps. "
            "{'properties':{'limit':{'type':'integer'}},'type':'object'}\n"
            "vorlane_get_context: Return 'what is the user working on right now' — top recent per app + the "
            "active scene/sheet pointer if present. {'properties':{},'type':'object'}\n");
}

TEST_F(SuiteTools, TheProfileIsPassedOnAsItIsAtTheCall) {
  EXPECT_EQ(call("get_user"), "{'sub':'o'}");
  profile["mcp_access"] = true;
  EXPECT_EQ(call("get_user"), "{'mcp_access':true,'sub':'o'}");
}

TEST_F(SuiteTools, RecentsAreListedAsTheyStandUpToTheLimit) {
  EXPECT_EQ(call("get_recent"), "{'recents':[]}");
  for (int i = 0; i < 25; ++i) open("ledgerly", std::to_string(i), i);
  open("other", "x", 100, "p");
  EXPECT_EQ(call("get_recent", "{'limit':1}"),
            "{'recents':[{'app':'ledgerly','entityId':'24','openedAt':'2026-03-01T12:00:24Z'}]}");
  const std::pair<const char*, std::size_t> limits[] = {{"{}", 20},
                                                        {"{'limit':'3'}", 20},
                                                        {"{'limit':null}", 20},
                                                        {"{'limit':2.5}", 20},
                                                        {"{'limit':true}", 20},
                                                        {"{'limit':1e300}", 20},
                                                        {"{'limit':18446744073709551615}", 20},
                                                        {"{'limit':9223372036854775807}", 25},
                                                        {"{'limit':3.0}", 3},
                                                        {"{'limit':0}", 0},
                                                        {"{'limit':-3}", 0}};
  for (const auto& [arguments, expected] : limits) EXPECT_EQ(count(arguments), expected) << arguments;
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
