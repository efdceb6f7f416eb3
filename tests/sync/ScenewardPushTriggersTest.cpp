#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "support/FakeSignalCenter.h"
#include "support/LogRecorder.h"
#include "support/RawClient.h"
#include "support/TaskHarness.h"
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

const Outcomes failed{{"a", ScenewardPusher::Pushed{1}}, {"b", ScenewardPusher::Failed{"pending"}}};

/// What a test holds of the monitor that the triggers own.
struct Network {
  NetworkPathMonitor::Handler report;
  bool unwatchable = false, cancelled = false;
};

class FakeMonitor : public NetworkPathMonitor {
 public:
  explicit FakeMonitor(Network& network) : network_(network) {}
  void start(Executor executor, Handler handler) override {
    if (network_.unwatchable) throw std::system_error(std::make_error_code(std::errc::permission_denied));
    network_.report = [=](bool satisfied) { boost::asio::post(executor, [=] { handler(satisfied); }); };
  }
  void cancel() override { network_.cancelled = true; }

 private:
  Network& network_;
};

/// The triggers on one thread, with every pass and every delay in the test's hands.
struct TriggerHarness {
  explicit TriggerHarness(bool unwatchable = false) {
    network.unwatchable = unwatchable;
    triggers->start();
    harness.settle();
  }
  /// Does what each letter stands for, and tells how many passes have begun of it. Network: '+' is
  /// there, '-' is not. A reason: 'a'uthentication, 's'ignal. The pass that runs ends with a save
  /// that 'f'ailed, all 'd'one, 'n'othing to do, or 't'hrows. The 'r'etry is due.
  std::string play(std::string_view steps) {
    std::string begun;
    for (const char step : steps) {
      const auto before = passes.size();
      if (step == '+' || step == '-') network.report(step == '+');
      if (step == 'a') notifications.post(auth::changed);
      if (step == 's') ScenewardPushClient::announcePending(*signals);
      if (step == 'r') retries.back()->set();
      end = step;
      if (std::string_view("fdnt").contains(step)) passes.back()->set();
      harness.settle();
      begun += std::to_string(passes.size() - before);
    }
    return begun;
  }
  Task<Outcomes> pass() {
    const auto gate = passes.emplace_back(std::make_shared<Event>());
    co_await gate->wait();
    if (end == 't') throw Failure("no memory");
    if (end == 'f') co_return failed;
    if (end == 'd') co_return Outcomes{{"a", ScenewardPusher::Pushed{1}}, {"b", ScenewardPusher::Blocked{}}};
    co_return Outcomes();
  }
  Task<> delay(std::chrono::milliseconds delay) {
    delays.push_back(delay.count() / 1000);
    const auto gate = retries.emplace_back(std::make_shared<Event>());
    co_await gate->wait();
  }
  /// Whether the task that waited is gone, and not because it might go on.
  static bool wasCancelled(const std::shared_ptr<Event>& gate) {
    return gate.use_count() == 1 && !gate->isSet();
  }

  testing::TaskHarness harness;
  NotificationCenter notifications;
  std::shared_ptr<FakeSignalCenter> signals = std::make_shared<FakeSignalCenter>();
  testing::LogRecorder log;
  Network network;
  std::vector<std::shared_ptr<Event>> passes, retries;
  std::vector<std::int64_t> delays;  // in seconds
  char end = 0;                      // of the pass that runs
  std::unique_ptr<ScenewardPushTriggers> triggers =
      std::make_unique<ScenewardPushTriggers>(ScenewardPushTriggers::Settings{
          .runOnce = [this] { return pass(); },
          .monitor = std::make_unique<FakeMonitor>(network),
          .notifications = notifications,
          .signals = signals,
          .executor = harness.executor(),
          .log = log.log(),
          .sleep = [this](std::chrono::milliseconds time) { return delay(time); }});
};

TEST(ScenewardPushTriggersTest, PassesBeginForEveryReasonOneAtATimeAndAgainWithAGrowingDelay) {
  // The steps, what they begin, the delays, and how many of these are cancelled.
  const std::tuple<const char*, const char*, std::vector<std::int64_t>, int> cases[] = {
      // Offline, all is ignored; the network's return starts a pass.
      {"a-s+d+-+", "00010001", {}, 0},
      // Reasons during a pass are joined to one further pass.
      {"+sssssanns", "1000000101", {}, 0},
      // The delay grows to its cap, and success or nothing to do resets it; a pass that cannot be run is
      // retried.
      {"+frfrfrfrfrfrfrfrd", "101010101010101010", {30, 60, 120, 240, 480, 900, 900, 900}, 0},
      {"+frfrdafrfrnatr", "101010101010101", {30, 60, 30, 60, 30}, 0},
      // A reason during a failing pass starts the next at once and leaves the delay alone; one after it comes
      // in place of the retry.
      {"+fraffa", "1010101", {30, 60}, 1},
      // Going offline ends the retries, and the return begins from the beginning.
      {"+frf-a+f-+-f+f-", "101000100100100", {30, 60, 30, 30}, 3},
      // Failing passes that each ask for the next are held back by the delay.
      {"+afafafafafraf", "10101010100101", {30}, 0},
  };
  for (const auto& [steps, begun, delays, cancelled] : cases) {
    SCOPED_TRACE(steps);
    TriggerHarness harness;
    EXPECT_EQ(harness.play(steps), begun);
    EXPECT_EQ(harness.delays, delays);
    EXPECT_EQ(std::ranges::count_if(harness.retries, TriggerHarness::wasCancelled), cancelled);
    const bool threw = std::string_view(steps).contains('t');
    EXPECT_EQ(harness.log.take(),
              std::vector<std::string>(threw ? 1 : 0, "sceneward push failed: no memory"));
  }
  TriggerHarness harness(true);
  EXPECT_EQ(harness.passes.size(), 1U) << "a network that cannot be watched counts as there";
  EXPECT_THAT(harness.log.take(), ElementsAre("the network path is not watched: Permission denied"));
}

TEST(ScenewardPushTriggersTest, AfterAStopNothingFiresAndWhatRanIsCancelled) {
  for (const bool destroyed : {false, true}) {
    for (const std::string_view steps : {"+", "+f"}) {
      TriggerHarness harness;
      harness.play(steps);
      if (destroyed) harness.triggers.reset();
      for (int i = 0; i < 2 && harness.triggers; ++i) harness.triggers->stop();
      EXPECT_TRUE(harness.network.cancelled);
      EXPECT_EQ(harness.play("s-+a"), "0000");
      EXPECT_TRUE(
          TriggerHarness::wasCancelled((harness.retries.empty() ? harness.passes : harness.retries).back()));
    }
  }
}

TEST(ScenewardPushTriggersTest, PassesNeverOverlapAndNoneBeginsAfterAStopWhoeverAsks) {
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
  EXPECT_TRUE(eventually([&] { return begun >= 100; }));
  triggers.stop();
  boost::asio::co_spawn(runtime.concurrent(), triggers.join(), boost::asio::use_future).get();
  const int all = begun;
  for (int i = 0; i < 1000; ++i) triggers.trigger();
  EXPECT_EQ(begun, all);
}

}  // namespace
}  // namespace vorlane
