#include "mcp/MCPRequestAuthorizer.h"

#include "base/Failure.h"
#include "base/Json.h"
#include "mcp/AgentBearerStore.h"
#include "mcp/KeychainBearerStorage.h"
#include "mcp/SuiteAdminSnapshot.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/TaskBench.h"

#include <gmock/gmock.h>

#include <set>
#include <thread>

namespace vorlane {
namespace {

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
      {{{"validUntil", "2026-03-01T12:00:00.000001Z"}}, true, asks()},
      {{{"role", "owner"}, {"isOwner", true}, {"product", "none"}}, true, asks()},
      {{{"role", "owner"}}, false, asks()},
      {{{"isOwner", true}}, false, asks()},
      {{{"role", "viewer"}}, false, asks()},
      {{{"product", "Sceneward"}}, false, asks()},
      {{{"actions", {"view"}}}, false, asks()},
      {{{"startsAt", "2026-03-01T12:00:00Z"}}, true, asks()},
      {{{"startsAt", "2026-03-01T12:00:01Z"}}, false, asks()},
      {{{"expiresAt", "2026-03-01T12:00:00Z"}}, false, asks()},
      {{{"expiresAt", "2026-03-01T13:00:00+00:00"}}, true, asks()},
      {{{"expiresAt", ""}}, false, asks()},
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

class MCPRequestAuthorizerTest : public ::testing::Test {
 protected:
  static constexpr auto endpoint = "https://ledgerly.test/api/ecosystem/admin-access/me";

  bool authorize(std::optional<AdminAccessRequirement> requirement, const std::string& as = "ana") {
    return bench.run<bool>([&] { return authorizer.authorize(requirement, as); });
  }

  testing::TaskBench bench;
  std::optional<std::string> user = "ana", token = "t0k";
  std::uint64_t generation = 4;
  std::shared_ptr<AccessGate> gate =
      std::make_shared<AccessGate>(std::make_shared<testing::FakeUserDefaults>());
  URLResponse response;
  URLRequest asked;
  std::function<void()> duringBearer, duringRequest;
  MCPRequestAuthorizer authorizer{{
      .gate = gate,
      .currentUserID = [this] { return user; },
      .accountGeneration = [this] { return generation; },
      .bearer = [this]() -> Task<std::optional<std::string>> {
        if (duringBearer) duringBearer();
        co_return token;
      },
      .runner = [this](URLRequest request) -> Task<URLResponse> {
        asked = request;
        if (duringRequest) duringRequest();
        co_return response;
      },
      .now = [] { return present; },
      .endpoint = endpoint,
  }};
};

TEST_F(MCPRequestAuthorizerTest, AsksTheGateAloneForOrdinaryTools) {
  gate->set(true, std::nullopt);
  EXPECT_FALSE(authorize(std::nullopt)) << "on for nobody";
  gate->set(true, "ana");
  EXPECT_TRUE(authorize(std::nullopt));
  for (const auto& other : {std::optional<std::string>(), std::optional<std::string>("Ana")}) {
    user = other;
    EXPECT_FALSE(authorize(std::nullopt, other.value_or("anonymous")));
    EXPECT_FALSE(authorize(std::nullopt));
  }
  user = "ana";
  gate->set(false, "ana");
  EXPECT_FALSE(authorize(std::nullopt));
}

TEST_F(MCPRequestAuthorizerTest, AsksTheBackEndForEachAdminCallAndTakesTheUnknownForANo) {
  const std::function<void()> faults[] = {
      [this] { response.status = 204; },
      [this] { response.url = "https://elsewhere.test/"; },
      [this] { response.body = "{}"; },
      [this] { response.body = snapshotText({{"role", "viewer"}}); },
      [] { throw TransportFailure(7, "refused"); },
      [this] { ++generation; },
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
  EXPECT_EQ(asked.url, endpoint);
  EXPECT_THAT(asked.headers, ::testing::ElementsAre(::testing::Pair("Authorization", "Bearer t0k")));
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
  }
  const auto token = tokens[0];
  EXPECT_THAT(tokens, ::testing::Each(token));
  EXPECT_EQ(store.currentToken(), token);
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
