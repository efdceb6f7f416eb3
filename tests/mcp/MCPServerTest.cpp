#include "mcp/MCPServer.h"

#include "TestTools.h"
#include "base/tasks/Runtime.h"
#include "base/tasks/Timing.h"
#include "mcp/JSONRPCCodec.h"
#include "support/TaskHarness.h"

#include <gmock/gmock.h>
#include <boost/asio/use_future.hpp>

namespace vorlane {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

std::string failedWith(long code, std::string_view message) {
  return fmt::format(R"({{"error":{{"code":{},"message":"{}"}},"id":1,"jsonrpc":"2.0"}})", code, message);
}
const std::string denied = failedWith(-32001, "Current account access could not be confirmed");

std::string content(const std::string& result) {
  return fmt::format(R"({{"id":1,"jsonrpc":"2.0","result":{{"content":{},"isError":false}}}})", result);
}

/// A server over rights that each test steers, driven by message texts.
class MCPServerTest : public ::testing::Test {
 protected:
  MCPServerTest() {
    module->add("t_echo", [](JSONMap arguments) -> Task<JSONMap> { co_return arguments; });
    module->add("t_fail", [](JSONMap) -> Task<JSONMap> { throw Failure("no such sheet"); });
    module->add("t_switch", [this](JSONMap arguments) -> Task<JSONMap> {
      ++generation;
      if (arguments.contains("commits")) MCPRequestContext::checkCurrentAccount();
      co_return ++completed, JSONMap();
    });
    module->add("t_admin", [](JSONMap) -> Task<JSONMap> { co_return JSONMap(); });
    module->list.back().adminAccess = [](const JSONMap& arguments) {
      return AdminAccessRequirement{.scope = {{"count", std::to_string(arguments.size())}}};
    };
    registry->registerModule(module);
  }

  Task<bool> authorize(std::optional<AdminAccessRequirement> requirement, Identity identity) {
    const bool admin = requirement.has_value();
    asked.push_back(!admin ? identity.userID : requirement->scope["count"]);
    if (admin && requirement->discoveryOnly) asked.back() += " listing";
    if (duringAuthorize) duringAuthorize(admin);
    if (identity.userID == "broken") throw Failure("the gate cannot be read");
    co_return identity.userID != "anonymous" && (!admin || adminGranted);
  }

  std::string send(const std::string& method, const std::string& params = "{}") {
    auto request = JSONRPCCodec::decodeRequest(
        fmt::format(R"({{"jsonrpc":"2.0","id":1,"method":"{}","params":{}}})", method, params));
    return JSONRPCCodec::encodeResponse(
        bench.run<JSONRPCResponse>([&] { return server.handle(std::move(request)); }));
  }
  std::string call(const std::string& tool, const std::string& arguments = "{}") {
    return send("tools/call", fmt::format(R"({{"name":"{}","arguments":{}}})", tool, arguments));
  }
  MCPStatusSnapshot status() { return server.statusRecorder().snapshot(0, Date(1'000'000s)); }

  testing::TaskHarness bench;
  std::string user = "ana";
  int generation = 1, completed = 0;
  bool adminGranted = false;
  std::function<void(bool admin)> duringAuthorize;
  std::vector<std::string> asked;
  std::shared_ptr<TestTools> module = std::make_shared<TestTools>();
  std::shared_ptr<ToolRegistry> registry = std::make_shared<ToolRegistry>();
  MCPServer server{
      registry,
      {.identityForRequest = [this](const auto&) { return Identity{user, std::nullopt}; },
       .authorize = [this](auto requirement, auto identity) { return authorize(requirement, identity); },
       .accountFence = [this](const auto&) { return [this, at = generation] { return at == generation; }; }},
      [] { return Date(1'000'000s); }};
};

TEST_F(MCPServerTest, AnswersTheHandshakeAndWhatCannotBeCalledBeforeAnyCheckOfRights) {
  EXPECT_EQ(send("initialize", "5"),
            R"({"id":1,"jsonrpc":"2.0","result":{"capabilities":{"tools":{}},"protocolVersion":"2024-11-05",)"
            R"("serverInfo":{"name":"VorlaneAgent","version":"0.1.0"}}})");
  EXPECT_EQ(send("Initialize"), failedWith(-32601, "unknown method: Initialize"));
  EXPECT_EQ(send("tools/call", R"({"name":7})"), failedWith(-32602, "tools/call requires 'name'"));
  EXPECT_EQ(call("t_none"), failedWith(-32002, "tool not found: t_none"));
  EXPECT_TRUE(asked.empty());
}

TEST_F(MCPServerTest, ListsByNameAndAsksOnceForEachAdminTool) {
  const auto listed = [this] { return parseJSON(send("tools/list")).at("result").at("tools").as_array(); };
  EXPECT_EQ(listed().size(), 3U);
  EXPECT_THAT(asked, ElementsAre("ana", "0 listing"));
  adminGranted = true;
  EXPECT_EQ(
      listed().at(0),
      (JSONMap{{"description", "does t_admin"}, {"inputSchema", {{"type", "object"}}}, {"name", "t_admin"}}));
}

TEST_F(MCPServerTest, ServesNobodyWhoseAccountIsNotConfirmed) {
  for (const std::string who : {"anonymous", "broken"}) {
    user = who;
    EXPECT_EQ(send("tools/list"), denied);
    EXPECT_EQ(call("t_echo"), denied);
  }
  user = "ana";
  EXPECT_EQ(call("t_admin", R"({"a":1,"b":2})"), denied);
  EXPECT_EQ(asked.back(), "2");
  adminGranted = true;
  for (const bool byUser : {false, true}) {
    for (const bool inAdminCheck : {false, true}) {
      duringAuthorize = [&](bool admin) {
        if (admin != inAdminCheck) return;
        byUser ? void(user = "ben") : void(++generation);
      };
      user = "ana";
      EXPECT_EQ(send("tools/list"), denied);
      user = "ana";
      EXPECT_EQ(call(inAdminCheck ? "t_admin" : "t_echo"), denied);
    }
  }
  EXPECT_EQ(status(), MCPStatusSnapshot()) << "refusals are not recorded";
}

TEST_F(MCPServerTest, PassesReadyContentOnAndWritesAnythingElseAsText) {
  EXPECT_EQ(call("t_echo", R"({"_content":[{"data":"x","type":"image"}],"other":1})"),
            content(R"([{"data":"x","type":"image"}])"));
  EXPECT_EQ(call("t_echo", "[1]"), content(R"([{"text":"{}","type":"text"}])"));
  for (const auto* given :
       {R"({"a":2.0,"b":1})", R"({"_content":[]})", R"({"_content":[{"type":"text"},7]})"}) {
    std::string text;
    appendJSONString(text, given);
    EXPECT_EQ(call("t_echo", given), content(fmt::format(R"([{{"text":{},"type":"text"}}])", text)));
  }
}

TEST_F(MCPServerTest, AnswersAndRecordsFailuresOfTheHandler) {
  EXPECT_EQ(call("t_fail"), failedWith(-32603, "no such sheet"));
  for (const auto* arguments : {"{}", R"({"commits":true})"}) {
    EXPECT_EQ(
        call("t_switch", arguments),
        failedWith(-32603, "The account changed during this request. Try again from the current account."));
  }
  EXPECT_EQ(completed, 1) << "the handler's own check fails too";
  EXPECT_EQ(status().lastToolCall, std::nullopt);
  EXPECT_EQ(status().errorsInLastHour, 3);
}

// That contexts follow tasks everywhere is tested with them, in base.
TEST(MCPRequestContext, TheFenceFollowsEachOfManyHandlersAndNeverLeaks) {
  Runtime runtime;
  const Executor shared = boost::asio::make_strand(runtime.concurrent());
  std::atomic<int> strangers = 0;
  // The account changes during every second call, in the midst of all the others.
  const auto call = [&](int number) -> Task<bool> {
    std::atomic<bool> isCurrent = true;
    const auto handler = [&]() -> Task<JSONMap> {
      co_await onExecutor(shared, [number] { return sleepFor(std::chrono::milliseconds(number % 3)); });
      isCurrent = number % 2 == 0;
      co_await onExecutor(shared, [&]() -> Task<> {
        const auto fence = MCPRequestContext::currentFence();
        co_return void(strangers += fence && fence() == isCurrent ? 0 : 1);
      });
      co_return JSONMap();
    };
    bool changed = false;
    try {
      co_await MCPRequestContext::run([&] { return isCurrent.load(); }, handler);
    } catch (const MCPRequestContext::Failure&) {
      changed = true;
    }
    strangers += MCPRequestContext::currentFence() ? 1 : 0;
    co_return changed;
  };
  std::vector<std::future<bool>> changed;
  for (int number = 0; number < 200; ++number) {
    changed.push_back(boost::asio::co_spawn(
        runtime.concurrent(), [&call, number] { return call(number); }, boost::asio::use_future));
  }
  for (int number = 0; auto& each : changed) EXPECT_EQ(each.get(), number++ % 2 == 1);
  EXPECT_EQ(strangers, 0);
}

TEST(MCPStatusRecorder, CountsTheLastHourAndTheActivityOfNamespaces) {
  const Date start{2'000'000s};
  MCPStatusRecorder recorder;
  recorder.record("ledgerly_get_sheet", start, false);
  recorder.record("ledgerly_a", start - 5s, true);
  recorder.record("noprefix", start, true);
  const auto snapshot = recorder.snapshot(3, start);
  EXPECT_EQ(snapshot.lastToolCall->name, "ledgerly_get_sheet");
  EXPECT_EQ(snapshot.namespaceLastSeen, (decltype(snapshot.namespaceLastSeen){{"ledgerly", start}}));
  EXPECT_EQ(recorder.snapshot(0, start + 3595s).errorsInLastHour, 2) << "an hour old is not older";
  EXPECT_EQ(recorder.snapshot(0, start + 3596s).errorsInLastHour, 1);
}

TEST(JSONRPCCodec, ReadsEachKindOfIdDropsPositionalParametersAndRefusesWhatIsNoRequest) {
  const std::pair<const char*, const char*> ids[] = {{R"("7")", R"("7")"},
                                                     {"1.9", "1"},
                                                     {"true", "1"},
                                                     {"null", "null"},
                                                     {"[1]", "null"},
                                                     {"9223372036854775808", "9223372036854775807"},
                                                     {"-1e300", "-9223372036854775808"}};
  for (const auto& [text, id] : ids) {
    const auto request = JSONRPCCodec::decodeRequest(
        fmt::format(R"({{"id":{},"jsonrpc":"2.0","method":"","params":[1,2]}})", text));
    EXPECT_FALSE(request.isNotification);
    EXPECT_TRUE(request.params.empty());
    EXPECT_EQ(JSONRPCCodec::encodeResponse({request.id.value(), JSONMap(), std::nullopt}),
              fmt::format(R"({{"id":{},"jsonrpc":"2.0","result":{{}}}})", id));
  }
  EXPECT_TRUE(JSONRPCCodec::decodeRequest(R"({"jsonrpc":"2.0","method":"x"})").isNotification);
  const std::pair<const char*, const char*> refused[] = {
      {R"([{"jsonrpc":"2.0","method":"x"}])", "not a JSON object"},
      {R"({"jsonrpc":2.0,"method":"x"})", "missing jsonrpc/method"},
      {R"({"jsonrpc":"1.0","method":"x"})", "missing jsonrpc/method"},
      {R"({"jsonrpc":"2.0","method":5})", "missing jsonrpc/method"}};
  for (const auto& [text, description] : refused) {
    EXPECT_THAT([&] { JSONRPCCodec::decodeRequest(text); },
                ::testing::Throws<JSONRPCDecodeError>(
                    ::testing::Property(&JSONRPCDecodeError::description, description)));
  }
}

TEST(ToolRegistry, SortsWhateverTheOrderOfRegistrationAndLetsTheLastOneWin) {
  ToolRegistry registry;
  const auto module = std::make_shared<TestTools>();
  module->list = {{.name = "t_b", .description = "old"}, {.name = "t_a", .description = "old"}};
  registry.registerModule(module);
  const auto held = registry.tool("t_a");
  module->list = {{.name = "t_a", .description = "new"}, {.name = "s_x", .description = "new"}};
  registry.registerModule(module);
  std::string shown;
  for (const auto& tool : registry.allTools()) shown += tool->name + " " + tool->description + ", ";
  EXPECT_EQ(shown, "s_x new, t_a new, t_b old, ") << "a tool no longer listed stays";
  EXPECT_EQ(held->description, "old") << "what was handed out does not change";
}

}  // namespace
}  // namespace vorlane
