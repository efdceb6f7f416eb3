#include "Spine.h"

#include "base/Failure.h"
#include "base/JSONArguments.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <thread>

namespace vorlane::test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Spine, AnAssistantListsReadsAndEditsSheetsAndTheyOutliveAKill) {
  Spine spine;
  spine.startServing();
  const auto listed = parseJSONMap(post(spine.agent.port(), spine.token, listTools).body);
  EXPECT_EQ(listed.at("result").at("tools").as_array().size(), 46U);

  const auto sheet = spine.result("ledgerly_create_sheet", {{"title", "Stage &amp; light — é"}});
  const auto id = std::string(sheet.at("sheet").at("id").as_string());
  const auto item = spine.result(
      "ledgerly_add_item", {{"sheetId", id}, {"name", "Lamp"}, {"qty", 4.0}, {"categoryName", "Light"}});
  const auto itemID = std::string(item.at("item").at("id").as_string());
  EXPECT_TRUE(
      spine.result("ledgerly_toggle_check", {{"sheetId", id}, {"itemId", itemID}}).at("checked").as_bool());
  EXPECT_EQ(spine.status().at("pending").at("sheets"), 1);

  EXPECT_EQ(spine.agent.stop(SIGKILL), -SIGKILL);
  spine.agent.start();
  ASSERT_TRUE(spine.eventuallyAnswers(200));
  const auto read = spine.result("ledgerly_get_sheet", {{"sheetId", id}});
  EXPECT_EQ(read.at("title"), "Stage & light — é");
  const auto& kept = read.at("categories").at(0).at("items").at(0);
  EXPECT_EQ(kept.at("qty"), JSONValue(4.0)) << "a real number stays one";
  EXPECT_EQ(kept.at("checked"), true);

  const auto refused = spine.call("ledgerly_get_sheet", {{"sheetId", "nope"}});
  EXPECT_EQ(refused.at("error").at("message"), "sheet nope not found");
  EXPECT_EQ(refused.at("error").at("code"), -32603);
}

TEST(Spine, OnlyTheSignedInPersonWithAccessIsServed) {
  Spine spine;
  spine.agent.start();
  ASSERT_TRUE(spine.eventuallyAnswers(503)) << "nobody is signed in";
  EXPECT_EQ(post(spine.agent.port(), "wrong", listTools).status, 401);

  spine.person("auth0|ana", true);
  spine.person("auth0|bea", false);
  spine.signIn("auth0|ana");
  ASSERT_TRUE(spine.eventuallyAnswers(200)) << spine.agent.log();
  spine.result("ledgerly_create_sheet", {{"title", "Ana's"}});

  spine.signIn("auth0|bea");
  ASSERT_TRUE(spine.eventuallyAnswers(503)) << "Ana's access does not carry over to Bea";
  spine.person("auth0|bea", true);
  spine.signOut();
  spine.signIn("auth0|bea");
  ASSERT_TRUE(spine.eventuallyAnswers(200));
  // Two announcements may each close and open the server once more, so a call may be refused.
  const auto comesToList = [&spine](std::size_t sheets) {
    return eventually([&] {
      try {
        return spine.result("ledgerly_list_sheets").at("sheets").as_array().size() == sheets;
      } catch (const Failure&) {
        return false;
      }
    });
  };
  EXPECT_TRUE(comesToList(0));

  spine.signIn("auth0|ana");
  EXPECT_TRUE(comesToList(1));
  spine.signOut();
  EXPECT_TRUE(spine.eventuallyAnswers(503));
}

TEST(Spine, TokensAreRefreshedOnceStoredAndNeverLogged) {
  Spine spine;
  spine.person("auth0|ana", true);
  spine.signIn("auth0|ana", 30);
  const auto before = parseJSONMap(contents(spine.vaultFile()));
  spine.agent.start();
  ASSERT_TRUE(spine.eventuallyAnswers(200));
  const auto after = parseJSONMap(contents(spine.vaultFile()));
  EXPECT_NE(after.at("refreshToken"), before.at("refreshToken")) << "the provider rotates it";
  EXPECT_EQ(spine.cloud.call(&RequestLog::find, {.method = "POST", .path = "/oauth/token"}).size(), 1U);
  const auto log = spine.agent.log();
  EXPECT_THAT(log, HasSubstr("AuthSession: refreshed OK, expires "));
  for (const auto* secrets : {&before, &after}) {
    for (const char* key : {"accessToken", "idToken", "refreshToken"}) {
      EXPECT_THAT(log, Not(HasSubstr(json::stringOr(*secrets, key)))) << key;
    }
  }
  EXPECT_THAT(log, Not(HasSubstr(spine.token)));
}

TEST(Spine, EveryAcknowledgedWriteIsThereAfterAKillInAStorm) {
  Spine spine;
  spine.startServing();
  for (int round = 0; round < 8; ++round) {
    const auto id = fmt::format("storm-{}", round);
    spine.result("ledgerly_create_sheet", {{"sheetId", id}});
    std::atomic<int> acknowledged{0};
    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w) {
      writers.emplace_back([&, w] {
        try {
          for (int i = 0;; ++i) {
            spine.result("ledgerly_add_item", {{"sheetId", id},
                                               {"categoryId", "c"},
                                               {"itemId", fmt::format("{}-{}", w, i)},
                                               {"name", "x"}});
            ++acknowledged;
          }
        } catch (const std::exception&) {
          // The agent is gone.
        }
      });
    }
    EXPECT_TRUE(eventually([&] { return acknowledged > 20 + round * 7; }));
    spine.agent.stop(SIGKILL);
    for (auto& writer : writers) writer.join();
    spine.agent.start();
    ASSERT_TRUE(spine.eventuallyAnswers(200));
    const auto items = spine.result("ledgerly_list_items", {{"sheetId", id}}).at("items").as_array().size();
    EXPECT_GE(static_cast<int>(items), acknowledged.load());
  }
}

}  // namespace
}  // namespace vorlane::test
