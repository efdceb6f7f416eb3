#include "preferences/AgentPreferences.h"
#include "support/FakeUserDefaults.h"
#include "support/LogRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace vorlane::testing {
namespace {

struct Preferences : ::testing::Test {
  FakeUserDefaults defaults;
  LogRecorder log;

  void plant(std::string text) { defaults.apply({{AgentPreferences::key, DefaultsData{std::move(text)}}}); }
};

const std::string whole =
    R"({"cloudFallbackForLocalAI":false,"includeLedgerlyInRecents":false,"includeScenewardInRecents":false,)"
    R"("localAIPicks":{"caption":"ollama"},"recentsCount":7,"renderCacheEnabled":false,"selectedTab":"local_ai"})";

TEST_F(Preferences, EachSetterIsStoredWholeAndSeenByTheNextStart) {
  AgentPreferences preferences(defaults, log.log());
  int heard = 0;
  const auto observation = preferences.observe([&] {
    ++heard;
    EXPECT_EQ(AgentPreferences::load(defaults), preferences.snapshot());
  });
  preferences.setRecentsCount(7);
  preferences.setIncludeLedgerlyInRecents(false);
  preferences.setIncludeScenewardInRecents(false);
  preferences.setLocalAIPicks({{"caption", "ollama"}});
  preferences.setCloudFallbackForLocalAI(false);
  preferences.setSelectedTab(SettingsTab::localAI);
  preferences.setRenderCacheEnabled(false);
  EXPECT_EQ(heard, 7);
  EXPECT_EQ(defaults.data(AgentPreferences::key)->bytes, whole);
  EXPECT_EQ(AgentPreferences(defaults, log.log()).snapshot(), preferences.snapshot());
}

TEST_F(Preferences, ARecordThatIsNotWholeLoadsAsAllDefaults) {
  const auto with = [](std::string_view from, std::string_view to) {
    auto text = whole;
    return text.replace(text.find(from), from.size(), to);
  };
  EXPECT_EQ(AgentPreferences::load(defaults).recentsCount, 20) << "a first start has the defaults";
  plant(with(R"("recentsCount":7)", R"("recentsCount":7.0,"later":null)"));
  EXPECT_EQ(AgentPreferences::load(defaults).recentsCount, 7);
  const std::string broken[] = {
      with(R"(,"renderCacheEnabled":false)", ""),
      with(R"("renderCacheEnabled":false)", R"("renderCacheEnabled":0)"),
      with(R"("recentsCount":7)", R"("recentsCount":7.5)"),
      with(R"("local_ai")", R"("localAI")"),
      "[" + whole + "]",
      "",
  };
  for (const auto& text : broken) {
    plant(text);
    EXPECT_EQ(AgentPreferences::load(defaults), AgentPreferences::Snapshot()) << text;
  }
}

TEST_F(Preferences, WhatCannotBeWrittenStaysInMemory) {
  plant(whole);
  AgentPreferences preferences(defaults, log.log());
  defaults.setReadOnly(true);
  preferences.setRecentsCount(9);
  EXPECT_THAT(log.take(), ::testing::ElementsAre(::testing::StartsWith("preferences not saved: ")));
  EXPECT_EQ(preferences.snapshot().recentsCount, 9);
}

TEST_F(Preferences, SettersOnManyThreadsLeaveTheLastValuesStored) {
  AgentPreferences preferences(defaults, log.log());
  std::thread other([&] {
    for (int n = 0; n < 200; ++n) preferences.setLocalAIPicks({{"task", std::to_string(n)}});
  });
  for (int n = 0; n < 200; ++n) preferences.setRecentsCount(n);
  other.join();
  EXPECT_EQ(AgentPreferences::load(defaults), preferences.snapshot());
  EXPECT_EQ(preferences.snapshot().localAIPicks.at("task"), "199");
}

}  // namespace
}  // namespace vorlane::testing
