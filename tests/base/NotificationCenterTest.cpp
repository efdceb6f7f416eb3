#include "base/NotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace vorlane {
namespace {

TEST(Notifications, ReachTheObserversInOrderWhoMayObservePostCancelAndFailMeanwhile) {
  NotificationCenter center;
  std::vector<std::string> heard;
  Observation later, victim, self;
  const auto first = center.observe("a", [&] {
    heard.emplace_back("first");
    victim.cancel();
    if (!later) later = center.observe("a", [&] { heard.emplace_back("later"); });
    center.post("b");
    throw 7;
  });
  victim = center.observe("a", [&] { heard.emplace_back("victim"); });
  self = center.observe("b", [&] {
    heard.emplace_back("once");
    self.cancel();
  });
  const auto last = center.observe("a", [&] { heard.emplace_back("last"); });
  center.post("a");
  EXPECT_THAT(heard, ::testing::ElementsAre("first", "once", "last"));
  heard.clear();
  center.post("a");
  EXPECT_THAT(heard, ::testing::ElementsAre("first", "last", "later"));
}

TEST(Notifications, AnObservationMovesEndsOnceAndMayOutliveTheCentre) {
  int heard = 0;
  auto center = std::make_unique<NotificationCenter>();
  auto observation = center->observe("a", [&heard] { ++heard; });
  center->post("a");
  observation = center->observe("a", [&heard] { heard += 10; });
  center->post("a");
  EXPECT_EQ(heard, 11) << "the one that was replaced has ended";
  center.reset();
  observation.cancel();
}

}  // namespace
}  // namespace vorlane
