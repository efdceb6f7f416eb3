#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "support/FakeSignalCenter.h"
#include "support/LogRecorder.h"
#include "support/TaskBench.h"
#include "sync/ScenewardPushTriggers.h"

#include <gmock/gmock.h>
#include <boost/asio/post.hpp>

#include <atomic>
#include <system_error>
#include <thread>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using Outcomes = ScenewardPusher::Outcomes;
using testing::FakeSignalCenter;

const Outcomes nothing;
const Outcomes failed{{"a", ScenewardPusher::Pushed{1}}, {"b", ScenewardPusher::Failed{"pending"}}};
const Outcomes done{{"a", ScenewardPusher::Pushed{1}}, {"b", ScenewardPusher::Blocked{}}};

/// What a test holds of the monitor that the triggers own.
struct Network {
  Executor executor;
  NetworkPathMonitor::Handler handler;
  bool unwatchable = false;
  bool cancelled = false;

  void report(bool satisfied) {
    boost::asio::post(executor, [this, satisfied] { handler(satisfied); });
  }
};

class FakeMonitor : public NetworkPathMonitor {
 public:
  explicit FakeMonitor(Network& network) : network_(network) {}
  void start(Executor executor, Handler handler) override {
    if (network_.unwatchable) throw std::system_error(std::make_error_code(std::errc::permission_denied));
    network_.executor = std::move(executor);
    network_.handler = std::move(handler);
  }
  void cancel() override { network_.cancelled = true; }

 private:
  Network& network_;
};

/// Something that a task waits for until the test says so.
struct Gate {
  Event open;
  Outcomes outcomes;
  bool cancelled = false;

  Task<> wait() {
    try {
      co_await open.wait();
    } catch (const CancelledFailure&) {
      cancelled = true;
      throw;
    }
  }
};

struct ScenewardPushTriggersTest : ::testing::Test {
  ScenewardPushTriggersTest() { triggers->start(); }
  void report(bool satisfied) {
    network.report(satisfied);
    bench.settle();
  }
  /// Ends the pass that runs.
  void endPass(const Outcomes& outcomes) {
    passes.back()->outcomes = outcomes;
    passes.back()->open.set();
    bench.settle();
  }
  void retryIsDue() {
    retries.back()->open.set();
    bench.settle();
  }
  void authChanged() {
    notifications.post(auth::changed);
    bench.settle();
  }
  /// How many passes have begun since this was last asked.
  std::size_t newPasses() { return passes.size() - std::exchange(seenPasses, passes.size()); }

  testing::TaskBench bench;
  NotificationCenter notifications;
  std::shared_ptr<FakeSignalCenter> signals = std::make_shared<FakeSignalCenter>();
  testing::LogRecorder log;
  Network network;
  std::vector<std::shared_ptr<Gate>> passes;
  std::size_t seenPasses = 0;
  std::vector<std::shared_ptr<Gate>> retries;
  std::vector<std::int64_t> delays;  // in seconds

  ScenewardPushTriggers::Settings settings() {
    return {.runOnce = [this]() -> Task<Outcomes> {
              const auto gate = passes.emplace_back(std::make_shared<Gate>());
              co_await gate->wait();
              if (gate->outcomes.contains("throw")) throw Failure("no memory");
              co_return gate->outcomes;
            },
            .monitor = std::make_unique<FakeMonitor>(network),
            .notifications = notifications,
            .signals = signals,
            .executor = bench.executor(),
            .log = log.log(),
            .sleep = [this](std::chrono::milliseconds delay) -> Task<> {
              delays.push_back(delay.count() / 1000);
              const auto gate = retries.emplace_back(std::make_shared<Gate>());
              co_await gate->wait();
            }};
  }
  std::unique_ptr<ScenewardPushTriggers> triggers = std::make_unique<ScenewardPushTriggers>(settings());
};

TEST_F(ScenewardPushTriggersTest, TheNetworksFirstReportStartsTheFirstPassAndItsReturnAnother) {
  authChanged();
  report(false);
  ScenewardPushClient::announcePending(*signals);
  bench.settle();
  EXPECT_EQ(newPasses(), 0U) << "offline, all is ignored";
  report(true);
  EXPECT_EQ(newPasses(), 1U);
  endPass(done);
  report(true);
  EXPECT_EQ(newPasses(), 0U) << "no change";
  report(false);
  report(true);
  EXPECT_EQ(newPasses(), 1U);
}

TEST_F(ScenewardPushTriggersTest, HoweverManyReasonsComeDuringAPassOneFurtherPassFollows) {
  report(true);
  for (int i = 0; i < 5; ++i) signals->post("com.vorlane.sceneward.checkpoint-pending");
  authChanged();
  EXPECT_EQ(newPasses(), 1U);
  endPass(nothing);
  EXPECT_EQ(newPasses(), 1U);
  endPass(nothing);
  EXPECT_EQ(newPasses(), 0U);
  authChanged();
  EXPECT_EQ(newPasses(), 1U) << "and a reason after that its own";
  EXPECT_THAT(delays, ElementsAre());
}

TEST_F(ScenewardPushTriggersTest, TheDelayGrowsToItsCapWhileASaveStaysPendingAndAnySuccessResetsIt) {
  report(true);
  for (const auto& success : {done, nothing}) {
    delays.clear();
    newPasses();
    for (int i = 0; i < 8; ++i) {
      endPass(failed);
      EXPECT_EQ(newPasses(), 0U);
      retryIsDue();
      EXPECT_EQ(newPasses(), 1U);
    }
    EXPECT_THAT(delays, ElementsAre(30, 60, 120, 240, 480, 900, 900, 900));
    endPass(success);
    EXPECT_EQ(delays.size(), 8U) << "nothing to retry";
    authChanged();
  }
  delays.clear();
  endPass({{"throw", ScenewardPusher::Blocked{}}});
  EXPECT_THAT(delays, ElementsAre(30)) << "a pass that cannot be run is retried";
  EXPECT_THAT(log.lines(), ElementsAre("sceneward push failed: no memory"));
}

TEST_F(ScenewardPushTriggersTest, AReasonDuringAFailingPassStartsTheNextAtOnceAndLeavesTheDelayAlone) {
  report(true);
  endPass(failed);
  retryIsDue();
  authChanged();
  endPass(failed);
  EXPECT_EQ(newPasses(), 3U);
  EXPECT_THAT(delays, ElementsAre(30));
  endPass(failed);
  EXPECT_THAT(delays, ElementsAre(30, 60));
  authChanged();
  EXPECT_EQ(newPasses(), 1U);
  EXPECT_TRUE(retries.back()->cancelled) << "the pass comes in place of the retry";
}

TEST_F(ScenewardPushTriggersTest, GoingOfflineEndsTheRetriesAndTheReturnBeginsFromTheBeginning) {
  report(true);
  endPass(failed);
  retryIsDue();
  endPass(failed);
  EXPECT_THAT(delays, ElementsAre(30, 60));
  report(false);
  EXPECT_TRUE(retries.back()->cancelled);
  authChanged();
  EXPECT_EQ(newPasses(), 2U);
  report(true);
  EXPECT_EQ(newPasses(), 1U) << "at once";
  report(false);
  endPass(failed);
  EXPECT_THAT(delays, ElementsAre(30, 60)) << "no retry while offline";
  report(true);
  endPass(failed);
  EXPECT_THAT(delays, ElementsAre(30, 60, 30));
}

TEST_F(ScenewardPushTriggersTest, AfterAStopNothingFiresAndWhatRanIsCancelled) {
  for (const bool destroyed : {false, true}) {
    for (const bool retrying : {false, true}) {
      network = {};
      triggers = std::make_unique<ScenewardPushTriggers>(settings());
      triggers->start();
      report(true);
      if (retrying) endPass(failed);
      newPasses();
      if (destroyed) triggers.reset();
      for (int i = 0; i < 2 && triggers; ++i) triggers->stop();
      EXPECT_TRUE(network.cancelled);
      signals->post(ScenewardPushClient::pendingNotice);
      report(true);
      authChanged();
      EXPECT_TRUE((retrying ? retries : passes).back()->cancelled);
      EXPECT_EQ(newPasses(), 0U);
    }
  }
}

TEST_F(ScenewardPushTriggersTest, PassesThatEachAskForTheNextAreHeldBackByTheDelay) {
  report(true);
  for (int i = 0; i < 5; ++i) {
    authChanged();
    endPass(failed);
  }
  EXPECT_EQ(newPasses(), 5U);
  EXPECT_THAT(delays, ElementsAre(30));
  retryIsDue();
  EXPECT_EQ(newPasses(), 1U);
}

TEST_F(ScenewardPushTriggersTest, ANetworkThatCannotBeWatchedCountsAsThere) {
  network.unwatchable = true;
  ScenewardPushTriggers blind(settings());
  blind.start();
  bench.settle();
  EXPECT_EQ(newPasses(), 1U);
  EXPECT_THAT(log.lines(), ElementsAre("the network path is not watched: Permission denied"));
}

TEST(ScenewardPushTriggersThreadsTest, PassesNeverOverlapAndNoneBeginsAfterAStopWhoeverAsks) {
  Runtime runtime;
  Network network;
  std::atomic<int> running = 0, begun = 0;
  const auto runOnce = [&]() -> Task<Outcomes> {
    ++begun;
    EXPECT_EQ(++running, 1);
    co_await boost::asio::post(boost::asio::use_awaitable);
    --running;
    co_return failed;
  };
  ScenewardPushTriggers triggers({.runOnce = runOnce,
                                  .monitor = std::make_unique<FakeMonitor>(network),
                                  .notifications = {},
                                  .signals = std::make_shared<FakeSignalCenter>(),
                                  .executor = runtime.concurrent(),
                                  .log = [](std::string_view) {}});
  triggers.start();
  network.report(true);
  std::jthread asking([&](const std::stop_token& end) {
    while (!end.stop_requested()) triggers.trigger();
  });
  while (begun < 100) std::this_thread::yield();
  triggers.stop();
  testing::await<bool>(runtime.concurrent(), [&]() -> Task<bool> {
    co_await triggers.join();
    co_return true;
  });
  const int all = begun;
  for (int i = 0; i < 1000; ++i) triggers.trigger();
  EXPECT_EQ(begun, all);
}

}  // namespace
}  // namespace vorlane
