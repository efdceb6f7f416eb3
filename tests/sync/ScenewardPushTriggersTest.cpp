#include "auth/AuthNotifications.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "support/FakeSignalCenter.h"
#include "support/LogRecorder.h"
#include "support/TaskBench.h"
#include "sync/ScenewardPushTriggers.h"

#include <gmock/gmock.h>
#include <boost/asio/post.hpp>

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using Outcomes = ScenewardPusher::Outcomes;
using testing::FakeSignalCenter;

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
  ~ScenewardPushTriggersTest() override { triggers.reset(); }
  void startAnew() {
    triggers.reset();
    bench.settle();
    network = {.unwatchable = network.unwatchable};
    passes.clear();
    retries.clear();
    delays.clear();
    triggers = std::make_unique<ScenewardPushTriggers>(settings());
    triggers->start();
  }
  /// Does what a letter stands for, and tells how many passes have begun of it. Network: '+' is
  /// there, '-' is not. A reason: 'a'uthentication, 's'ignal. The pass that runs ends with a save
  /// that 'f'ailed, all 'd'one, 'n'othing to do, or 't'hrows. The 'r'etry is due.
  std::size_t play(char step) {
    const auto before = passes.size();
    const auto outcomes = std::string_view("fdnt").find(step);
    if (step == '+' || step == '-') network.report(step == '+');
    if (step == 'a') notifications.post(auth::changed);
    if (step == 's') ScenewardPushClient::announcePending(*signals);
    if (step == 'r') retries.back()->open.set();
    if (outcomes != std::string_view::npos) {
      const Outcomes all[] = {failed, done, {}, {{"throw", ScenewardPusher::Blocked{}}}};
      passes.back()->outcomes = all[outcomes];
      passes.back()->open.set();
    }
    bench.settle();
    return passes.size() - before;
  }
  /// The passes that each of the steps has begun.
  std::string play(std::string_view steps) {
    std::string begun;
    for (const char step : steps) begun += std::to_string(play(step));
    return begun;
  }

  testing::TaskBench bench;
  NotificationCenter notifications;
  std::shared_ptr<FakeSignalCenter> signals = std::make_shared<FakeSignalCenter>();
  testing::LogRecorder log;
  Network network;
  std::vector<std::shared_ptr<Gate>> passes, retries;
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
  std::unique_ptr<ScenewardPushTriggers> triggers;
};

TEST_F(ScenewardPushTriggersTest, PassesBeginForEveryReasonOneAtATimeAndAgainWithAGrowingDelay) {
  struct Case {
    const char *steps, *begun;
    std::vector<std::int64_t> delays;
    std::ptrdiff_t retriesCancelled;
  };
  const Case cases[] = {
      // Offline, all is ignored; the network's return starts a pass.
      {"a-s+d+-+", "00010001", {}, 0},
      // Reasons during a pass are joined to one further pass.
      {"+sssssanna", "1000000101", {}, 0},
      // The delay grows to its cap, and success or nothing to do resets it; a pass that cannot be run is
      // retried.
      {"+frfrfrfrfrfrfrfrd", "101010101010101010", {30, 60, 120, 240, 480, 900, 900, 900}, 0},
      {"+frfrdafrfrnatr", "101010101010101", {30, 60, 30, 60, 30}, 0},
      // A reason during a failing pass starts the next at once and leaves the delay alone; one after it comes
      // in place of the retry.
      {"+fraffa", "1010101", {30, 60}, 1},
      // Going offline ends the retries, and the return begins from the beginning.
      {"+frf-a+-f+f", "10100010010", {30, 60, 30}, 1},
      // Failing passes that each ask for the next are held back by the delay.
      {"+afafafafafr", "101010101001", {30}, 0},
  };
  for (const auto& now : cases) {
    SCOPED_TRACE(now.steps);
    startAnew();
    EXPECT_EQ(play(now.steps), now.begun);
    EXPECT_EQ(delays, now.delays);
    EXPECT_EQ(std::ranges::count(retries, true, [](const auto& gate) { return gate->cancelled; }),
              now.retriesCancelled);
  }
  EXPECT_THAT(log.take(), ElementsAre("sceneward push failed: no memory"));

  network.unwatchable = true;
  startAnew();
  bench.settle();
  EXPECT_EQ(passes.size(), 1U) << "a network that cannot be watched counts as there";
  EXPECT_THAT(log.take(), ElementsAre("the network path is not watched: Permission denied"));
}

TEST_F(ScenewardPushTriggersTest, AfterAStopNothingFiresAndWhatRanIsCancelled) {
  for (const bool destroyed : {false, true}) {
    for (const auto* steps : {"+", "+f"}) {
      startAnew();
      play(steps);
      if (destroyed) triggers.reset();
      for (int i = 0; i < 2 && triggers; ++i) triggers->stop();
      EXPECT_TRUE(network.cancelled);
      EXPECT_EQ(play("s-+a"), "0000");
      EXPECT_TRUE((retries.empty() ? passes : retries).back()->cancelled);
    }
  }
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
