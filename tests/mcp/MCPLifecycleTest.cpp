#include "mcp/MCPLifecycle.h"

#include "RawClient.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "mcp/KeychainBearerStorage.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"
#include "support/TaskBench.h"

#include <gmock/gmock.h>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct WaitingModule : ToolModule {
  std::string toolNamespace() const override { return "t"; }
  std::vector<ToolDefinition> tools() const override {
    return {{"t_wait", "", {}, [this](JSONMap, Identity) { return wait(); }, nullptr}};
  }
  Task<JSONMap> wait() const {
    begun.set();
    co_await finish.wait();
    co_return JSONMap();
  }
  mutable Event begun, finish;
};

class MCPLifecycleTest : public ::testing::Test {
 protected:
  MCPLifecycleTest() {
    environment.bearerStore = bearer;
    environment.gate = gate;
    environment.currentUser = [] { return std::optional<std::string>("ana"); };
    environment.log = log.log();
    environment.accountGeneration = [this] { return generation.load(); };
    environment.registerModules = [this](const auto& registry) { registry->registerModule(module); };
    environment.port = 0;
    environment.io = runtime.io();
    environment.concurrent = runtime.concurrent();
  }

  std::string rpc(const std::string& method) {
    const auto body =
        fmt::format(R"({{"jsonrpc":"2.0","method":"{}","params":{{"name":"t_wait"}}}})", method);
    RawClient client(lifecycle.httpPort().value());
    client.send(fmt::format("POST /rpc x\r\nAuthorization: Bearer {}\r\nContent-Length: {}\r\n\r\n{}",
                            bearer->currentToken(), body.size(), body));
    return client.receiveAll();
  }

  Runtime runtime;
  testing::LogRecorder log;
  std::shared_ptr<WaitingModule> module = std::make_shared<WaitingModule>();
  std::shared_ptr<AgentBearerStore> bearer = std::make_shared<AgentBearerStore>(
      std::make_shared<KeychainBearerStorage>(std::make_shared<testing::FakeVault>()));
  std::shared_ptr<AccessGate> gate =
      std::make_shared<AccessGate>(std::make_shared<testing::FakeUserDefaults>());
  std::atomic<std::uint64_t> generation = 1;
  MCPLifecycle::Environment environment;
  MCPLifecycle lifecycle;
};

TEST_F(MCPLifecycleTest, ComesBackOnTheSamePortWhenAccessIsGiven) {
  gate->set(true, "ben");
  lifecycle.start(environment);
  const auto port = lifecycle.httpPort();
  const auto listening = fmt::format("mcp: HTTP listening on 127.0.0.1:{}", port.value());
  EXPECT_THAT(log.take(),
              ElementsAre("mcp: gate denied — rpc surface off, render service still up", listening));
  EXPECT_THAT(rpc("initialize"),
              ::testing::MatchesRegex("HTTP/1.1 503 Bad Request\r\n.*mcp access disabled"));

  gate->set(true, "ana");
  lifecycle.stop();
  EXPECT_EQ(lifecycle.httpPort(), std::nullopt);
  lifecycle.start(environment);
  EXPECT_EQ(lifecycle.httpPort(), port);
  EXPECT_THAT(log.take(), ElementsAre(listening));
  EXPECT_THAT(rpc("tools/list"), HasSubstr(R"("name":"t_wait")"));
}

TEST_F(MCPLifecycleTest, GivesNoSuccessToACallOfAStoppedServer) {
  gate->set(true, "ana");
  for (const bool restarted : {true, false}) {
    lifecycle.start(environment);
    std::string answer;
    std::thread client([&] { answer = rpc("tools/call"); });
    testing::await<bool>(runtime.concurrent(), [&]() -> Task<bool> {
      co_await module->begun.wait();
      co_return true;
    });
    if (restarted) lifecycle.start(environment);
    if (!restarted) ++generation;
    module->finish.set();
    client.join();
    EXPECT_THAT(answer, HasSubstr("The account changed during this request."));
    module = std::make_shared<WaitingModule>();
  }
}

/// The number of the call that the running work belongs to, told through its fence.
thread_local int answeringCall = 0;

TEST(MCPRequestContext, TheFenceFollowsEachOf500HandlersAndNeverLeaks) {
  constexpr int calls = 500;
  Runtime runtime;
  const Executor shared = boost::asio::make_strand(runtime.concurrent());
  std::atomic<int> wrong = 0, checks = 0;
  const auto check = [&](int call) {
    answeringCall = 0;
    if (const auto fence = MCPRequestContext::currentFence()) fence();
    ++checks;
    if (answeringCall != call) ++wrong;
  };
  const auto handler = [&](int call) -> Task<JSONMap> {
    check(call);
    for (int round = 0; round < 3; ++round) {
      co_await sleepFor(std::chrono::milliseconds(call % 3));
      check(call);
      const auto hop = [&]() -> Task<> {
        check(call);
        co_await boost::asio::post(boost::asio::use_awaitable);
        check(call);
      };
      co_await onExecutor(shared, hop);
      check(call);
      co_await boost::asio::co_spawn(co_await boost::asio::this_coro::executor, hop,
                                     boost::asio::use_awaitable);
    }
    co_return JSONMap();
  };
  std::atomic<int> running = calls;
  for (int call = 1; call <= calls; ++call) {
    spawn(
        runtime.concurrent(), "call",
        [&, call]() -> Task<> {
          co_await MCPRequestContext::run([call] { return (answeringCall = call) > 0; },
                                          [&, call] { return handler(call); });
        },
        [&] { --running; });
  }
  // Work of nobody's runs in between, on the same threads and the same strand.
  testing::await<bool>(runtime.concurrent(), [&]() -> Task<bool> {
    const auto nobody = [&]() -> Task<> { co_return check(0); };
    while (running > 0) {
      co_await nobody();
      co_await onExecutor(shared, nobody);
    }
    co_return true;
  });
  runtime.stop();
  EXPECT_EQ(wrong, 0);
  EXPECT_GE(checks, calls * 13);
}

}  // namespace
}  // namespace vorlane
