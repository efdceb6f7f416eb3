#include "access/MCPRequestAuthorizer.h"

#include "access/AgentBearerStore.h"
#include "access/KeychainBearerStorage.h"
#include "access/ProfileSyncer.h"
#include "access/SuiteAdminSnapshot.h"
#include "base/Failure.h"
#include "base/JSON.h"
#include "base/tasks/Event.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"
#include "support/TaskHarness.h"

#include <gmock/gmock.h>

#include <set>
#include <thread>

namespace vorlane {
namespace {

using ::testing::ElementsAre;

const Date present = *dateFromISO8601("2026-03-01T12:00:00Z");

AdminAccessRequirement asks(std::map<std::string, std::string> scope = {}, bool discovery = false) {
  return {"sceneward", "library", "edit", std::move(scope), discovery};
}

/// A manager's snapshot with one grant, where some keys of either are replaced.
std::string snapshotText(const JSONMap& changes = {}) {
  const std::set<std::string> ofGrant{"product", "section", "actions", "startsAt", "expiresAt", "scope"};
  JSONMap grant{{"product", "sceneward"}, {"section", "library"}, {"actions", {"view", "edit"}}};
  JSONMap snapshot = parseJSONMap(R"({"actorId":"ana","role":"manager","isOwner":false,"policyVersion":"3",)"
                                  R"("validUntil":"2026-03-01T12:00:00.500Z"})");
  for (const auto& [key, value] : changes) {
    (ofGrant.contains(key) ? grant : snapshot)[key] = value;
  }
  snapshot["grants"] = JSONArray({grant});
  return writeJSON(snapshot);
}

TEST(SuiteAdminSnapshot, GrantsNothingThatIsUnclear) {
  const JSONMap scoped{{"scope", {{"projectId", "p1"}}}}, blank{{"scope", {{"projectId", ""}}}};
  const std::tuple<JSONMap, bool, AdminAccessRequirement> cases[] = {
      {{}, true, asks()},
      {{{"actorId", ""}}, false, asks()},
      {{{"validUntil", "2026-03-01T12:00:00Z"}}, false, asks()},
      {{{"role", "owner"}, {"isOwner", true}, {"product", "none"}}, true, asks()},
      {{{"role", "owner"}}, false, asks()},
      {{{"startsAt", "2026-03-01T12:00:01Z"}}, false, asks()},
      {{{"expiresAt", "2026-03-01T12:00:00Z"}}, false, asks()},
      {{{"startsAt", nullptr}, {"expiresAt", nullptr}, {"scope", nullptr}}, true, asks()},
      {scoped, true, asks({{"projectId", "p1"}, {"other", "x"}})},
      {scoped, false, asks({{"projectId", "p2"}})},
      {scoped, true, asks({}, true)},
      {blank, false, asks({{"projectId", ""}})},
  };
  for (const auto& [changes, expected, requirement] : cases) {
    const auto text = snapshotText(changes);
    EXPECT_EQ(SuiteAdminSnapshot::decode(text).allows(requirement, present), expected) << text;
  }
}

struct AccountTest : ::testing::Test {
  testing::TaskHarness harness;
  std::optional<std::string> user = "ana";
  std::int64_t epoch = 4;
  std::shared_ptr<const Account> account =
      std::make_shared<const Account>(Account{[this] { return user; }, [this] { return epoch; }});
  std::shared_ptr<AccessGate> gate =
      std::make_shared<AccessGate>(std::make_shared<testing::FakeUserDefaults>());
};

class MCPRequestAuthorizerTest : public AccountTest {
 protected:
  static constexpr auto endpoint = "https://ledgerly.test/api/ecosystem/admin-access/me";

  bool authorize(std::optional<AdminAccessRequirement> requirement, const std::string& as = "ana") {
    return harness.run<bool>([&] { return authorizer.authorize(requirement, as); });
  }

  std::string token = "t0k";
  URLResponse response;
  URLRequest asked;
  std::function<void()> duringBearer, duringRequest;
  MCPRequestAuthorizer authorizer{{
      .gate = gate,
      .api = {.base = "https://ledgerly.test",
              .send = [this](URLRequest request) -> Task<URLResponse> {
                asked = request;
                EXPECT_FALSE(request.followRedirects);
                if (duringRequest) duringRequest();
                co_return response;
              },
              .bearer = [this]() -> Task<std::optional<std::string>> {
                if (duringBearer) duringBearer();
                co_return token;
              },
              .account = account},
      .now = [] { return present; },
  }};
};

TEST_F(MCPRequestAuthorizerTest, AsksTheGateAloneForOrdinaryTools) {
  using Person = std::optional<std::string>;
  const std::tuple<bool, Person, Person, std::string, bool> cases[] = {
      {true, std::nullopt, "ana", "ana", false},  // on for nobody
      {true, "ana", "ana", "ana", true},         {true, "ana", "ana", "ben", false},
      {true, "ana", std::nullopt, "ana", false}, {true, "ana", std::nullopt, "anonymous", false},
      {true, "ana", "Ana", "Ana", false},        {false, "ana", "ana", "ana", false},
  };
  for (const auto& [on, owner, current, caller, allowed] : cases) {
    gate->set(on, owner);
    user = current;
    EXPECT_EQ(authorize(std::nullopt, caller), allowed) << caller;
  }
}

TEST_F(MCPRequestAuthorizerTest, AsksTheBackEndForEachAdminCallAndTakesTheUnknownForANo) {
  const std::function<void()> faults[] = {
      [this] { response.status = 204; },
      [this] { response.url = "https://elsewhere.test/"; },
      [this] { response.body = "{}"; },
      [this] { response.body = snapshotText({{"role", "viewer"}}); },
      [] { throw TransportFailure(7, "refused"); },
      [this] { ++epoch; },
      [this] { user = "ben"; },
      [this] { gate->set(false, std::nullopt); },
  };
  for (auto* moment : {&duringBearer, &duringRequest}) {
    for (const auto& fault : faults) {
      gate->set(true, "ana");
      user = "ana";
      response = {.status = 200, .url = endpoint, .body = snapshotText()};
      EXPECT_TRUE(authorize(asks()));
      *moment = fault;
      EXPECT_FALSE(authorize(asks()));
      *moment = nullptr;
    }
  }
  gate->set(true, "ana");
  token = "";
  EXPECT_FALSE(authorize(asks()));
  EXPECT_THAT(asked.headers, ElementsAre(::testing::Pair("Authorization", "Bearer t0k")));
}

constexpr auto ownerEpoch = "com.vorlane.auth.owner-epoch";
constexpr auto granted = R"({"success":true,"profile":{"mcpAccess":true}})";
constexpr auto onLine = "mcp: profile sync — mcpAccess=true";

/// A syncer whose network, sleep and refresh action each wait until the test lets
/// them go on. The refresh action logs its begin and the gate at its end.
class ProfileSyncerTest : public AccountTest {
 protected:
  ~ProfileSyncerTest() override {
    syncer.stop();
    harness.settle();
  }

  void start() {
    syncer.start({.gate = gate,
                  .api = {.send = [this](URLRequest request) -> Task<URLResponse> {
                            EXPECT_FALSE(request.followRedirects);
                            const URLResponse response{.status = status, .url = request.url, .body = body};
                            if (hold) co_await hold->wait();
                            co_return response;
                          },
                          .bearer = []() -> Task<std::optional<std::string>> { co_return "t0k"; },
                          .account = account},
                  .log = log.log(),
                  .refreshAction = [this]() -> Task<> {
                    log.log()("begin");
                    if (holdRefresh) co_await holdRefresh->wait();
                    log.log()(gate->isOn() ? "on" : "off");
                  },
                  .notifications = &notifications,
                  .executor = harness.executor(),
                  .sleep = [this](std::chrono::milliseconds interval) -> Task<> {
                    sleeps.push_back(interval / std::chrono::seconds(1));
                    const auto mine = wake = std::make_shared<Event>();
                    co_await mine->wait();
                  }});
    harness.settle();
  }
  void letGo(std::shared_ptr<Event> event) {
    event->set();
    harness.settle();
  }

  NotificationCenter notifications;
  testing::LogRecorder log;
  int status = 200;
  std::string body = granted;
  std::shared_ptr<Event> hold, holdRefresh, wake;
  std::vector<long> sleeps;
  ProfileSyncer syncer;
};

TEST_F(ProfileSyncerTest, BacksOffWhileNothingChangesAndDeniesWhatIsUnclear) {
  start();
  for (int i = 0; i < 5; ++i) letGo(wake);
  body = R"({"profile":{"mcpAccess":false}})";
  for (int i = 0; i < 2; ++i) letGo(wake);
  EXPECT_THAT(sleeps, ElementsAre(300, 600, 1200, 2400, 3600, 3600, 300, 600));
  const std::tuple<std::optional<std::string>, const char*, int> cases[] = {
      {"ana", R"({"profile":{"mcpAccess":true},"success":"yes"})", 200},
      {"ana", R"({"profile":{"mcpAccess":1}})", 200},
      {"ana", granted, 302},
      {"ana", granted, 500},
      {std::nullopt, granted, 200}};
  for (const auto& [who, unclear, code] : cases) {
    user = who;
    status = code;
    gate->set(true, "ana");
    body = unclear;
    start();
    EXPECT_FALSE(gate->isOn()) << unclear;
  }
}

TEST_F(ProfileSyncerTest, ClosesTheGateBeforeThePostOfAnAccountChangeReturns) {
  start();
  EXPECT_THAT(log.take(), ElementsAre(onLine, "begin", "on"));
  user = "ben";
  hold = std::make_shared<Event>();
  notifications.post(ownerEpoch);
  EXPECT_FALSE(gate->isOn());
  EXPECT_THAT(log.take(), ElementsAre()) << "the refresh action is never on the poster's stack";
  harness.settle();
  EXPECT_THAT(log.take(), ElementsAre("begin", "off")) << "down at once, before the new profile is known";
  letGo(hold);
  EXPECT_TRUE(gate->isEnabled("ben"));
  EXPECT_THAT(log.take(), ElementsAre(onLine, "begin", "on"));
}

TEST_F(ProfileSyncerTest, DropsAStaleResultWithoutALineAndNeverRunsTwoRefreshActionsAtOnce) {
  const std::function<void()> changes[] = {[this] { notifications.post(ownerEpoch); },
                                           [this] { user = "ben"; }, [this] { syncer.stop(); }};
  for (const auto& change : changes) {
    user = "ana";
    hold = std::make_shared<Event>();
    start();
    const auto first = std::exchange(hold, std::make_shared<Event>());
    change();
    letGo(first);
    EXPECT_FALSE(gate->isOn());
    EXPECT_THAT(log.take(), ElementsAre());
  }
  user = "ana";
  hold = nullptr;
  holdRefresh = std::make_shared<Event>();
  start();
  for (int i = 0; i < 3; ++i) notifications.post(ownerEpoch);
  harness.settle();
  EXPECT_EQ(std::ranges::count(log.lines(), "begin"), 1);
  letGo(std::exchange(holdRefresh, nullptr));
  EXPECT_EQ(std::ranges::count(log.take(), "begin"), 2) << "what waited was joined into one";
}

const SecretItem item{"com.vorlane.agent.mcp", "bearer-token"};

struct AgentBearerStoreTest : ::testing::Test {
  AgentBearerStore another() const {
    return AgentBearerStore(std::make_shared<KeychainBearerStorage>(vault));
  }
  std::shared_ptr<testing::FakeVault> vault = std::make_shared<testing::FakeVault>();
  AgentBearerStore store = another();
};

TEST_F(AgentBearerStoreTest, GivesEveryCallerTheSameSecretUntilItIsReplaced) {
  std::array<std::string, 8> tokens;
  {
    std::vector<std::jthread> threads;
    for (auto& token : tokens) threads.emplace_back([&] { token = another().currentToken(); });
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { store.currentToken(); });
  }
  const auto token = store.currentToken();
  EXPECT_THAT(tokens, ::testing::Each(token));
  EXPECT_THAT(token, ::testing::MatchesRegex("[0-9a-f]{64}"));
  EXPECT_TRUE(store.validate(token));
  EXPECT_FALSE(store.validate(token + "0"));
  another().regenerate();
  EXPECT_FALSE(store.validate(token)) << "also when another process has replaced it";
  vault->plant(item, "");
  EXPECT_FALSE(store.validate("")) << "what nobody could use is no secret";
  EXPECT_TRUE(store.validate(store.currentToken()));
}

TEST_F(AgentBearerStoreTest, ReadsTheVaultOnlyWhenItsStampHasMoved) {
  vault->plant(item, "zeroth");
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(store.validate("zeroth"));
  EXPECT_EQ(vault->reads(), 1);
  vault->fail({.stampless = true});
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(store.validate("zeroth"));
  EXPECT_EQ(vault->reads(), 11);
  // A secret that is replaced while it is being read is not kept under the new stamp.
  vault->fail({});
  vault->plant(item, "first");
  vault->afterNextRead([&] { vault->plant(item, "second"); });
  store.validate("first");
  EXPECT_TRUE(store.validate("second"));
  vault->plant(item, "third");
  vault->fail({.read = vault::notAvailable});
  EXPECT_FALSE(store.validate("third"));
  EXPECT_THROW(store.currentToken(), DomainFailure);
}

}  // namespace
}  // namespace vorlane
