#include "mcp/UnixSocketTransport.h"

#include "TestTools.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "support/RawClient.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace vorlane {
namespace {

using namespace std::string_literals;

constexpr std::size_t bigAnswer = 100'000;

std::string call(const std::string& id, std::string_view tool, std::string_view arguments = "{}") {
  return fmt::format(
      R"({{"jsonrpc":"2.0","id":{},"method":"tools/call","params":{{"name":"t_{}","arguments":{}}}}})", id,
      tool, arguments);
}
const std::string ping = R"({"jsonrpc":"2.0","id":"ping","method":"initialized"})";
const std::string pong = R"({"id":"ping","jsonrpc":"2.0","result":{}})";

class SocketTransportTest : public ::testing::Test {
 protected:
  SocketTransportTest() {
    tools->add("t_count", [this](JSONMap) -> Task<JSONMap> { co_return ++calls, JSONMap(); });
    tools->add("t_size",
               [](JSONMap map) -> Task<JSONMap> { co_return JSONMap{{"size", writeJSON(map).size()}}; });
    tools->add("t_big", [this](JSONMap) -> Task<JSONMap> {
      ++calls;
      co_return JSONMap{{"text", std::string(bigAnswer, 'x')}};
    });
    tools->add("t_look", [this](JSONMap) -> Task<JSONMap> { co_return ++looks, JSONMap(); });
    tools->list.back().onlyReads = true;
    tools->add("t_wait", [this](JSONMap) -> Task<JSONMap> {
      ++calls;
      co_await finish.wait();
      co_return JSONMap();
    });
    const auto registry = std::make_shared<ToolRegistry>();
    registry->registerModule(tools);
    const MCPServerRights rights{
        .identityForRequest = [](const JSONRPCRequest&) { return Identity{"ana", {}}; },
        .authorize = [](auto, Identity) -> Task<bool> { co_return true; },
        .accountFence = [](const Identity&) -> AccountFence { return [] { return true; }; }};
    transport = std::make_unique<UnixSocketTransport>(std::make_shared<MCPServer>(registry, rights), path,
                                                      runtime->io(), runtime->concurrent(), runtime->poller(),
                                                      std::make_shared<DescriptorReserve>());
    transport->start();
  }
  ~SocketTransportTest() override { std::filesystem::remove_all(path); }

  /// What comes back for `bytes`, sorted, up to the answer of a ping sent after them.
  std::multiset<std::string> answers(std::string_view bytes, std::size_t count) {
    RawClient client(path);
    client.send(bytes);
    std::multiset<std::string> all;
    for (std::size_t i = 0; i < count; ++i) all.insert(client.receiveLine());
    client.send(ping + "\n");
    EXPECT_EQ(client.receiveLine(), pong + "\n") << "after " << bytes;
    return all;
  }
  bool isServed() { return answers("", 0).empty(); }
  bool comesToHold(std::size_t connections) {
    return eventually([&] { return transport->activeConnections() == connections; });
  }

  std::unique_ptr<Runtime> runtime = std::make_unique<Runtime>();
  const std::string path = fmt::format("{}mcp-{}.sock", testing::TempDir(), ::getpid());
  std::shared_ptr<TestTools> tools = std::make_shared<TestTools>();
  std::atomic<int> calls = 0, looks = 0;
  Event finish;
  std::unique_ptr<UnixSocketTransport> transport;
};

TEST_F(SocketTransportTest, AnswersLinesAndNothingElse) {
  // Many, since answers come in any order and one might come late.
  std::string notifications;
  for (int i = 0; i < 50; ++i) notifications += R"({"jsonrpc":"2.0","method":"initialized"})"s + "\n";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"", {}},
      {"\n\r\n\n", {}},
      {ping + "\r\n", {pong}},
      {ping + "\n\n" + ping + "\n", {pong, pong}},
      {notifications, {}},
      {R"({"jsonrpc":"2.0","method":"initialized","id":null})"s + "\n",
       {R"({"id":null,"jsonrpc":"2.0","result":{}})"}},
      {R"({"method":"tools/list","id":5})"s + "\n",
       {R"({"error":{"code":-32700,"message":"missing jsonrpc/method"},"id":null,"jsonrpc":"2.0"})"}},
  };
  for (const auto& [bytes, expected] : cases) {
    std::multiset<std::string> lines;
    for (const auto& line : expected) lines.insert(line + "\n");
    EXPECT_EQ(answers(bytes, expected.size()), lines) << bytes;
  }
}

TEST_F(SocketTransportTest, MatchesAnswersToAFloodOfWaitingCallsById) {
  RawClient client(path);
  std::string flood;
  for (int i = 0; i < 2000; ++i) flood += call(std::to_string(i), "wait") + "\n";
  client.send(flood);
  ASSERT_TRUE(eventually([&] { return calls == 2000; }));
  client.send(ping + "\n");
  EXPECT_EQ(client.receiveLine(), pong + "\n");

  finish.set();
  std::set<std::int64_t> ids;
  for (int i = 0; i < 2000; ++i) ids.insert(parseJSONMap(client.receiveLine()).at("id").as_int64());
  EXPECT_EQ(ids.size(), 2000);
  EXPECT_EQ(*ids.rbegin(), 1999);
}

TEST_F(SocketTransportTest, TakesALineOfManyMegabytesInSmallPieces) {
  RawClient client(path);
  const std::string line = call("1", "size", "{\"a\":\"" + std::string(20'000'000, 'y') + "\"}") + "\n";
  for (std::size_t at = 0; at < line.size(); at += 1024) ASSERT_TRUE(client.send(line.substr(at, 1024)));
  EXPECT_THAT(client.receiveLine(), ::testing::HasSubstr(R"(\"size\":20000008)"));
}

TEST_F(SocketTransportTest, LeavesAClientAloneThatTakesNothing) {
  constexpr int requests = 1000;
  RawClient slow(path);
  std::thread sender([&] {
    const auto line = call("1", "big") + "\n";
    for (int i = 0; i < requests; ++i) ASSERT_TRUE(slow.send(line));
  });
  // What may be untaken, what the kernel holds, and what each worker has in hand.
  constexpr int bound = (1 << 20) / bigAnswer + 4 + 8;
  ASSERT_TRUE(eventually([&] { return calls * bigAnswer > (1 << 20); }));
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(isServed());
  for (int taken = 0; taken < requests; ++taken) {
    ASSERT_LE(calls, taken + bound);
    ASSERT_GT(slow.receiveLine().size(), bigAnswer);
  }
  sender.join();
}

TEST_F(SocketTransportTest, CarriesOutTheChangesThatAClientSentBeforeItLeft) {
  // More than is read while nobody takes the answers: the kernel holds the rest.
  int sent = 0;
  {
    RawClient client(path);
    const auto line = call("1", "big") + "\n";
    for (; sent < 40; ++sent) client.send(line);
    client.send(call("1", "look") + "\n");  // starts when nobody is left to see it
    while (std::cmp_equal(::send(client.descriptor(), line.data(), line.size(), MSG_DONTWAIT), line.size()))
      ++sent;
    ASSERT_TRUE(eventually([&] { return calls * bigAnswer > (1 << 20); }));
    EXPECT_LT(calls, sent);
  }
  EXPECT_TRUE(comesToHold(0));
  EXPECT_TRUE(eventually([&] { return calls == sent; }));
  EXPECT_EQ(looks, 0);
  {
    RawClient client(path);
    client.send(call("1", "look") + "\n");
    client.receiveLine();
    EXPECT_EQ(looks, 1);
    client.send(call("1", "count"));  // without a newline it is no line
  }
  EXPECT_TRUE(comesToHold(0));
  EXPECT_TRUE(isServed());
  EXPECT_EQ(calls, sent);
}

TEST_F(SocketTransportTest, MayEndWithLinesThatWaitForASlowClient) {
  RawClient slow(path);
  std::thread sender([&] {
    const auto line = call("1", "big") + "\n";
    while (slow.send(line)) {
    }
  });
  ASSERT_TRUE(eventually([&] { return calls * bigAnswer > (1 << 20); }));
  runtime->stop();
  transport.reset();
  runtime.reset();
  sender.join();
}

TEST_F(SocketTransportTest, StopCutsEveryConnectionAndFreesThePath) {
  RawClient idle(path), waiting(path);
  waiting.send(call("1", "wait") + "\n");
  ASSERT_TRUE(eventually([&] { return calls == 1 && transport->activeConnections() == 2; }));
  transport->stop();
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(idle.receiveAll() + waiting.receiveAll(), "");
  EXPECT_TRUE(comesToHold(0));
  finish.set();

  // What a crash leaves, and what else may stand there.
  std::ofstream(path) << "stale";
  transport->start();
  EXPECT_TRUE(isServed());
  transport->stop();
  std::filesystem::create_directory(path);
  EXPECT_THAT([&] { transport->start(); },
              ::testing::Throws<Failure>(::testing::Property(
                  &Failure::description, "cannot listen at " + path + ": Address already in use")));
  UnixSocketTransport far(nullptr, "/" + std::string(107, 'p'), runtime->io(), runtime->concurrent(),
                          runtime->poller(), nullptr);
  EXPECT_THAT([&] { far.start(); },
              ::testing::Throws<Failure>(::testing::Property(
                  &Failure::description,
                  ::testing::StartsWith("the socket's path has 108 bytes, the system takes 107: /p"))));
}

}  // namespace
}  // namespace vorlane
