#include "net/HTTPTransport.h"

#include "TestTools.h"
#include "access/KeychainBearerStorage.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "mcp/MCPLifecycle.h"
#include "net/HTTPRequestParser.h"
#include "net/HTTPResponse.h"
#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"
#include "support/RawClient.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <latch>

namespace vorlane {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;

constexpr int callers = 200;
const std::string secret(64, 'a');
const std::string bearer = "Authorization: Bearer " + secret + "\r\n";

/// Tells what it was handed, "/render/STATUS" with that status, "/render/meet" when all callers have come.
struct TestRoute : HTTPRoute {
  Task<HTTPMessage> answer(HTTPRequest request) override {
    const auto& path = request.path;
    if (path == "/render/throw") throw Failure("the queue is gone");
    if (path == "/render/block") {
      ++blocked;
      goOn.wait();
      co_return responseMessage({});
    }
    if (path == "/render/meet" && ++come == callers) all.set();
    if (path == "/render/meet") co_await all.wait();
    const auto status = path.size() == 11 ? std::stoi(path.substr(8)) : 200;
    co_return responseMessage(
        {status, {{"X-B", request.headers["origin"]}, {"A", request.method}}, path + request.body});
  }
  std::atomic<int> come = 0, blocked = 0;
  Event all;
  std::latch goOn{1};
};

void limitDescriptors(rlim_t count = 4096) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min(count, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

rlim_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<rlim_t>(std::distance(begin(all), end(all)));
}

std::string request(std::string_view line, std::string_view headers, std::string_view body) {
  return fmt::format("{} HTTP/1.1\r\n{}Content-Length: {}\r\n\r\n{}", line, headers, body.size(), body);
}

const std::string echo = request("POST /rpc", bearer, R"({"jsonrpc":"2.0","id":1,"method":"initialized"})");

std::string answer(std::string_view status, std::string_view headers, std::string_view body) {
  return fmt::format("HTTP/1.1 {}\r\n{}Content-Length: {}\r\nConnection: close\r\n\r\n{}", status, headers,
                     body.size(), body);
}
const std::string notFound = answer("404 Not Found", "Content-Type: text/plain\r\n", "not found");
const std::string unauthorized = answer("401 Unauthorized", "Content-Type: text/plain\r\n", "unauthorized");

class HTTPTransportTest : public ::testing::Test {
 protected:
  HTTPTransportTest() {
    limitDescriptors();
    const auto vault = std::make_shared<testing::FakeVault>();
    vault->plant({"com.vorlane.agent.mcp", "bearer-token"}, secret);
    environment.bearerStore =
        std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(vault));
    environment.gate = gate;
    environment.api.account = std::make_shared<const Account>(
        Account{[] { return std::optional<std::string>("ana"); }, [this] { return epoch.load(); }});
    environment.log = log.log();
    environment.registerModules = [this](const auto& registry) { registry->registerModule(module); };
    environment.routes.add("/render", route);
    environment.port = 0;
    environment.io = runtime.io();
    environment.concurrent = runtime.concurrent();
    environment.poller = &runtime.poller();
    gate->set(true, "ana");
    lifecycle.start(environment);
  }

  RawClient send(std::string_view bytes) {
    RawClient client(lifecycle.httpPort().value());
    client.send(bytes);
    return client;
  }
  bool serves() { return succeeded(send(echo)); }
  static bool succeeded(RawClient client) { return client.receiveAll().starts_with("HTTP/1.1 200 OK"); }
  bool comesToHold(int connections) {
    return eventually([&] { return lifecycle.statusSnapshot().activeConnectionCount == connections; });
  }

  Runtime runtime;
  testing::LogRecorder log;
  std::shared_ptr<TestRoute> route = std::make_shared<TestRoute>();
  std::shared_ptr<TestTools> module = std::make_shared<TestTools>();
  std::shared_ptr<AccessGate> gate =
      std::make_shared<AccessGate>(std::make_shared<testing::FakeUserDefaults>());
  std::atomic<std::int64_t> epoch = 1;
  MCPLifecycle::Environment environment;
  MCPLifecycle lifecycle;
};

TEST_F(HTTPTransportTest, AnswersEachRequestToTheByte) {
  const auto* json = "Content-Type: application/json\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {"POST /rpc?x=1 HTTP/1.1\r\n\r\n", notFound},
      {"POST /rpc HTTP/1.1\r\n\r\n", unauthorized},
      {request("POST /rpc", "Authorization: bearer " + secret + "\r\n", "{}"), unauthorized},
      {request("POST /rpc", bearer, "[]"),
       answer("400 Bad Request", json,
              R"({"error":{"code":-32700,"message":"not a JSON object"},"id":null,"jsonrpc":"2.0"})")},
      {request("POST /rpc", "AUTHORIZATION: \tBearer " + secret + " \r\n",
               R"({"jsonrpc":"2.0","method":"initialized"})"),
       answer("200 OK", json, R"({"id":null,"jsonrpc":"2.0","result":{}})")},
      {request("PUT /render/202", "Origin: null\r\n", "ab"),
       answer("202 Accepted", "A: PUT\r\nX-B: null\r\n", "/render/202ab")},
      {"GET /render/204 HTTP/1.1\r\n\r\n", answer("204 No Content", "A: GET\r\nX-B: \r\n", "")},
      {"GET /render/throw x\r\n\r\n",
       answer("500 Internal Server Error", json, R"({"error":"the queue is gone"})")},
  };
  for (const auto& [asked, expected] : cases) EXPECT_EQ(send(asked).receiveAll(), expected) << asked;
}

TEST_F(HTTPTransportTest, ServesTwoHundredThatWaitForOneAnotherBesideFiveHundredThatStall) {
  std::vector<RawClient> stalled;
  for (std::size_t i = 0; i < 500; ++i) {
    stalled.push_back(send(echo.substr(0, i % 2 == 0 ? 0 : i % echo.size())));
  }
  EXPECT_TRUE(comesToHold(500));
  std::vector<RawClient> clients;
  for (int i = 0; i < callers; ++i) clients.push_back(send("GET /render/meet x\r\n\r\n"));
  for (auto& client : clients) EXPECT_TRUE(succeeded(std::move(client)));
  // One that goes on in the end is answered; one that only ends gets nothing.
  stalled[51].send(echo.substr(51));
  EXPECT_TRUE(succeeded(std::move(stalled[51])));
  stalled[53].endSending();
  EXPECT_EQ(stalled[53].receiveAll(), "");
  stalled.clear();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(HTTPTransportTest, PausesAcceptingWithoutDescriptorsAndComesBack) {
  ASSERT_TRUE(serves());
  std::vector<RawClient> clients(20);
  limitDescriptors(openDescriptors() + 8);
  std::vector<FileDescriptor> fill;
  while (fill.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC))) {
  }
  for (auto& client : clients) {
    ASSERT_TRUE(client.connect(lifecycle.httpPort().value()));
    client.send(echo);
  }
  // Nobody is answered while there is no room, and waiting costs no time.
  const auto used = std::clock();
  pollfd readable{.fd = clients[0].descriptor(), .events = POLLIN, .revents = 0};
  EXPECT_EQ(::poll(&readable, 1, 350), 0);
  EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 10);

  fill.clear();
  limitDescriptors();
  for (auto& client : clients) EXPECT_TRUE(succeeded(std::move(client)));
}

TEST_F(HTTPTransportTest, TakesLargeBodiesAndGivesLargeAnswersPieceByPiece) {
  constexpr std::size_t size = 20 << 20;
  auto slow = send(fmt::format("POST /render x\r\nContent-Length: {}\r\n\r\n", size));
  const std::string piece(1024, 'x');
  for (std::size_t sent = 0; sent < size; sent += piece.size()) ASSERT_TRUE(slow.send(piece));
  // A client that does not read holds up nobody, and gets all of it when it does.
  EXPECT_TRUE(serves());
  EXPECT_TRUE(slow.receiveAll() ==
              answer("200 OK", "A: POST\r\nX-B: \r\n", "/render" + std::string(size, 'x')));

  // One that goes on sending, unread, still gets its answer.
  auto endless = send("POST /a x\r\nTransfer-Encoding: chunked\r\n\r\n");
  EXPECT_TRUE(endless.send(std::string(std::size_t{4} << 20, 'j')));
  endless.endSending();
  EXPECT_EQ(endless.receiveAll(), notFound);
}

TEST_F(HTTPTransportTest, KeepsNoBodyThatItsHeadHasRefusedAndAnswersAllTheSame) {
  const auto resident = [] {
    std::ifstream in("/proc/self/statm");
    long pages = 0, used = 0;
    in >> pages >> used;
    return used * ::sysconf(_SC_PAGESIZE);
  };
  const std::pair<const char*, std::string> cases[] = {{"POST /rpc", unauthorized}, {"PUT /a", notFound}};
  const std::string piece(std::size_t{1} << 20, 'x');
  for (const auto& [line, expected] : cases) {
    auto client = send(fmt::format("{} x\r\nContent-Length: {}\r\n\r\n", line, 64 * piece.size()));
    const auto before = resident();
    for (int i = 0; i < 64; ++i) ASSERT_TRUE(client.send(piece));
    EXPECT_LT(resident() - before, 16 << 20) << line;
    EXPECT_EQ(client.receiveAll(), expected);
  }
}

TEST_F(HTTPTransportTest, NearTheLimitOfDescriptorsTheOldestThatHasNotAskedLeaves) {
  ASSERT_TRUE(serves());
  const auto waits = [](RawClient& client) {
    pollfd readable{.fd = client.descriptor(), .events = POLLIN, .revents = 0};
    return ::poll(&readable, 1, 0) == 0;
  };
  limitDescriptors(openDescriptors() + 120);
  std::vector<RawClient> stalled;
  for (int i = 0; i < 50; ++i) stalled.push_back(send(echo.substr(0, 30)));
  EXPECT_TRUE(eventually([&] { return !waits(stalled.front()); }));
  EXPECT_TRUE(waits(stalled.back()));
  EXPECT_TRUE(serves());
  limitDescriptors();
}

TEST_F(HTTPTransportTest, ThreadsThatBlockHoldUpNobodyElse) {
  std::vector<RawClient> blocked;
  for (int i = 0; i < 3; ++i) blocked.push_back(send("GET /render/block x\r\n\r\n"));
  ASSERT_TRUE(eventually([&] { return route->blocked == 3; }));
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(serves());
  route->goOn.count_down();
  for (auto& client : blocked) EXPECT_TRUE(succeeded(std::move(client)));
}

TEST_F(HTTPTransportTest, ComesBackOnTheSamePortWithTheRightsOfThatMoment) {
  const auto port = lifecycle.httpPort().value();
  const auto listening = fmt::format("mcp: HTTP listening on 127.0.0.1:{}", port);
  EXPECT_THAT(log.take(), ElementsAre(listening));
  auto open = send(echo.substr(0, 30));
  ASSERT_TRUE(comesToHold(1));
  lifecycle.stop();
  EXPECT_FALSE(RawClient().connect(port));
  open.send(echo.substr(30));
  EXPECT_EQ(open.receiveAll(), "") << "nobody is left to answer";

  gate->set(true, "ben");
  lifecycle.start(environment);
  EXPECT_THAT(log.take(),
              ElementsAre("mcp: gate denied — rpc surface off, render service still up", listening));
  EXPECT_EQ(send(echo).receiveAll(),
            answer("503 Bad Request", "Content-Type: text/plain\r\n", "mcp access disabled"));
  EXPECT_TRUE(succeeded(send("GET /render x\r\n\r\n")));
  gate->set(true, "ana");
  environment.port = port;
  lifecycle.start(environment);
  EXPECT_TRUE(serves());
  MCPLifecycle second;
  second.start(environment);
  EXPECT_THAT(log.take(), ElementsAre(listening, ::testing::StartsWith("mcp: HTTP start failed: ")));
}

TEST_F(HTTPTransportTest, GivesNoSuccessToACallOfAStoppedServerOrAnotherAccount) {
  for (const bool restarted : {true, false}) {
    std::atomic<bool> begun = false;
    Event finish;
    module = std::make_shared<TestTools>();
    module->add("t_wait", [&](JSONMap) -> Task<JSONMap> {
      begun = true;
      co_await finish.wait();
      co_return JSONMap();
    });
    lifecycle.start(environment);
    auto client = send(request("POST /rpc", bearer,
                               R"({"jsonrpc":"2.0","method":"tools/call","params":{"name":"t_wait"}})"));
    ASSERT_TRUE(eventually([&] { return begun.load(); }));
    if (restarted) lifecycle.start(environment);
    if (!restarted) ++epoch;
    finish.set();
    EXPECT_THAT(client.receiveAll(), ::testing::HasSubstr("The account changed during this request."));
  }
}

// What it makes of any bytes is compared with a plain parse in fuzz/fuzz_http_parser.cpp.
TEST(HTTPRequestParser, SearchesAHeadThatNeverEndsOnlyOnce) {
  HTTPRequestParser endless;
  for (int i = 0; i < 20 * 1024; ++i) ASSERT_FALSE(endless.feed(std::string(1024, 'x')));
}

}  // namespace
}  // namespace vorlane
