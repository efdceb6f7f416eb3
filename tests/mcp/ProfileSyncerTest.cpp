#include "mcp/ProfileSyncer.h"

#include "base/Failure.h"
#include "base/tasks/Event.h"
#include "support/FakeUserDefaults.h"
#include "support/LogRecorder.h"
#include "support/TaskBench.h"

#include <gmock/gmock.h>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto epoch = "com.vorlane.auth.owner-epoch";
constexpr auto granted = R"({"success":true,"profile":{"mcpAccess":true}})";
constexpr auto onLine = "mcp: profile sync — mcpAccess=true";
constexpr auto offLine = "mcp: profile sync — mcpAccess=false";

/// A syncer whose network, sleep and refresh action each wait until the test lets
/// them go on. The refresh action logs its begin and the gate at its end.
class ProfileSyncerTest : public ::testing::Test {
 protected:
  ~ProfileSyncerTest() override {
    syncer.stop();
    bench.settle();
  }

  Task<URLResponse> answer(URLRequest request) {
    const URLResponse response{.status = status, .url = request.url, .body = body};
    if (hold) co_await hold->wait();
    if (response.status == 0) throw TransportFailure(7, "refused");
    co_return response;
  }
  Task<> refresh() {
    log.log()("begin");
    if (holdRefresh) co_await holdRefresh->wait();
    log.log()(gate->isOn() ? "on" : "off");
  }
  Task<> sleep(std::chrono::milliseconds interval) {
    sleeps.push_back(interval / std::chrono::seconds(1));
    const auto mine = wake = std::make_shared<Event>();
    co_await mine->wait();
  }

  void start() {
    syncer.start({.gate = gate,
                  .currentUser = [this] { return user; },
                  .bearer = []() -> Task<std::optional<std::string>> { co_return "t0k"; },
                  .runner = [this](URLRequest request) { return answer(std::move(request)); },
                  .log = log.log(),
                  .refreshAction = [this] { return refresh(); },
                  .notifications = &notifications,
                  .executor = bench.executor(),
                  .sleep = [this](std::chrono::milliseconds interval) { return sleep(interval); }});
    bench.settle();
  }
  void letGo(std::shared_ptr<Event> event) {
    event->set();
    bench.settle();
  }

  testing::TaskBench bench;
  std::shared_ptr<AccessGate> gate =
      std::make_shared<AccessGate>(std::make_shared<testing::FakeUserDefaults>());
  NotificationCenter notifications;
  testing::LogRecorder log;
  std::optional<std::string> user = "ana";
  int status = 200;
  std::string body = granted;
  std::shared_ptr<Event> hold, holdRefresh, wake;
  std::vector<long> sleeps;
  ProfileSyncer syncer;
};

TEST_F(ProfileSyncerTest, DeniesWhateverGoesWrongAndSaysWhy) {
  const std::tuple<int, std::string, std::string> cases[] = {
      {0, "", "network unavailable"},
      {300, granted, "response unavailable"},
      {200, R"({"profile":null})", "invalid response"},
      {200, R"({"profile":{"mcpAccess":1}})", "invalid response"},
      {200, R"({"profile":{"mcpAccess":true},"success":"yes"})", "invalid response"},
  };
  for (const auto& [code, text, denial] : cases) {
    gate->set(true, "ana");
    std::tie(status, body) = std::tie(code, text);
    start();
    EXPECT_FALSE(gate->isOn()) << text;
    EXPECT_THAT(log.take(), ElementsAre("mcp: profile sync denied — " + denial, offLine, "begin", "off"));
  }
  status = 299;
  body = R"({"profile":{"mcpAccess":true},"success":null})";
  start();
  EXPECT_THAT(log.take(), ElementsAre(onLine, "begin", "on"));
  user = std::nullopt;
  start();
  EXPECT_THAT(log.take(), ElementsAre(offLine, "begin", "off"));
}

TEST_F(ProfileSyncerTest, BacksOffWhileNothingChanges) {
  start();
  for (int i = 0; i < 5; ++i) letGo(wake);
  body = R"({"profile":{"mcpAccess":false}})";
  for (int i = 0; i < 2; ++i) letGo(wake);
  EXPECT_THAT(sleeps, ElementsAre(300, 600, 1200, 2400, 3600, 3600, 300, 600));
}

TEST_F(ProfileSyncerTest, ClosesTheGateBeforeThePostOfAnAccountChangeReturns) {
  start();
  log.take();
  user = "ben";
  hold = std::make_shared<Event>();
  notifications.post(epoch);
  EXPECT_FALSE(gate->isOn());
  EXPECT_THAT(log.take(), IsEmpty()) << "the refresh action is never on the poster's stack";
  bench.settle();
  EXPECT_THAT(log.take(), ElementsAre("begin", "off")) << "down at once, before the new profile is known";
  letGo(hold);
  EXPECT_TRUE(gate->isEnabled("ben"));
  EXPECT_THAT(log.take(), ElementsAre(onLine, "begin", "on"));
}

TEST_F(ProfileSyncerTest, DropsAStaleResultWithoutALine) {
  const std::function<void()> changes[] = {[this] { notifications.post(epoch); }, [this] { user = "ben"; },
                                           [this] { syncer.stop(); }};
  for (const auto& change : changes) {
    user = "ana";
    hold = std::make_shared<Event>();
    start();
    const auto first = std::exchange(hold, std::make_shared<Event>());
    change();
    letGo(first);
    EXPECT_FALSE(gate->isOn());
    EXPECT_THAT(log.take(), IsEmpty());
  }
}

TEST_F(ProfileSyncerTest, NeverRunsTwoRefreshActionsAtOnce) {
  holdRefresh = std::make_shared<Event>();
  start();
  for (int i = 0; i < 3; ++i) {
    notifications.post(epoch);
    bench.settle();
  }
  EXPECT_EQ(std::ranges::count(log.lines(), "begin"), 1);
  letGo(std::exchange(holdRefresh, nullptr));
  EXPECT_EQ(std::ranges::count(log.take(), "begin"), 2) << "what waited was joined into one";
}

}  // namespace
}  // namespace vorlane
