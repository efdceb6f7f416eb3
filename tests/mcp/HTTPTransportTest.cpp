#include "mcp/HTTPTransport.h"

#include "RawClient.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "mcp/HTTPRequestParser.h"
#include "mcp/KeychainBearerStorage.h"
#include "support/FakeVault.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <ctime>
#include <filesystem>

namespace vorlane {
namespace {

using namespace std::string_literals;

constexpr int callers = 200;
const std::string secret(64, 'a');
const std::string bearer = "Authorization: Bearer " + secret + "\r\n";

/// Tells what it was handed; "/render/STATUS" gives that status, and "/render/meet"
/// answers when so many callers have come.
struct TestRoutes : RenderHTTPRoutes {
  Task<RenderHTTPResponse> handle(std::string method, std::string path, HTTPHeaders headers,
                                  std::string body) override {
    if (path == "/render/throw") throw Failure("the queue is gone");
    const bool meets = path == "/render/meet";
    if (meets && ++come == callers) all.set();
    if (meets) co_await all.wait();
    const auto status = path.size() == 11 ? std::stoi(path.substr(8)) : 200;
    co_return RenderHTTPResponse{status, {{"X-B", headers["origin"]}, {"A", method}}, path + body};
  }
  std::atomic<int> come = 0;
  Event all;
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
  std::shared_ptr<HTTPTransport> start(std::uint16_t port = 0) {
    auto transport = std::make_shared<HTTPTransport>(
        std::make_shared<MCPServer>(nullptr, MCPServerRights()),
        std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(vault_)), port,
        runtime_.io(), runtime_.concurrent());
    transport->setRenderRoutes(std::make_shared<TestRoutes>());
    transport->start();
    return transport;
  }
  RawClient send(std::string_view bytes) {
    RawClient client(transport_->port());
    client.send(bytes);
    return client;
  }
  bool serves() { return succeeded(send(echo)); }
  static bool succeeded(RawClient client) { return client.receiveAll().starts_with("HTTP/1.1 200 OK"); }
  bool comesToHold(std::size_t connections) {
    return eventually([&] { return transport_->activeConnections() == connections; });
  }

  void SetUp() override {
    limitDescriptors();
    vault_->plant({"com.vorlane.agent.mcp", "bearer-token"}, secret);
    transport_ = start();
  }

  Runtime runtime_;
  std::shared_ptr<testing::FakeVault> vault_ = std::make_shared<testing::FakeVault>();
  std::shared_ptr<HTTPTransport> transport_;
};

TEST_F(HTTPTransportTest, AnswersEachRequestToTheByte) {
  const auto json = [](std::string_view status, std::string_view body) {
    return answer(status, "Content-Type: application/json\r\n", body);
  };
  const std::pair<std::string, std::string> cases[] = {
      {request("GET /rpc", bearer, ""), notFound},
      {"post /rpc HTTP/1.1\r\n\r\n", notFound},
      {"POST /rpc?x=1 HTTP/1.1\r\n\r\n", notFound},
      {"GET /renderx HTTP/1.1\r\n\r\n", notFound},
      {"POST /rpc HTTP/1.1\r\n\r\n", unauthorized},
      {request("POST /rpc", "Authorization: bearer " + secret + "\r\n", "{}"), unauthorized},
      {request("POST /rpc", "Authorization: Bearer " + secret + "b\r\n", "{}"), unauthorized},
      {request("POST /rpc", bearer, "[]"),
       json("400 Bad Request",
            R"({"error":{"code":-32700,"message":"not a JSON object"},"id":null,"jsonrpc":"2.0"})")},
      {request("POST /rpc", "AUTHORIZATION: \tBearer " + secret + " \r\n",
               R"({"jsonrpc":"2.0","method":"initialized"})"),
       json("200 OK", R"({"id":null,"jsonrpc":"2.0","result":{}})")},
      {request("PUT /render/202", "Origin: null\r\n", "ab"),
       answer("202 Accepted", "A: PUT\r\nX-B: null\r\n", "/render/202ab")},
      {"GET /render/204 HTTP/1.1\r\n\r\n", answer("204 No Content", "A: GET\r\nX-B: \r\n", "")},
      {"GET /render/418 HTTP/1.1\r\n\r\n", answer("418 OK", "A: GET\r\nX-B: \r\n", "/render/418")},
      {"GET /render/throw x\r\n\r\n", json("500 Internal Server Error", R"({"error":"the queue is gone"})")},
  };
  for (const auto& [asked, expected] : cases) {
    EXPECT_EQ(send(asked).receiveAll(), expected) << asked;
  }
  transport_ = start();
  vault_->fail({.read = vault::notAvailable});
  EXPECT_EQ(send(echo).receiveAll(), unauthorized);
}

TEST_F(HTTPTransportTest, AnswersTwoHundredCallsThatWaitForOneAnother) {
  std::vector<RawClient> clients;
  for (int i = 0; i < callers; ++i) clients.push_back(send("GET /render/meet x\r\n\r\n"));
  for (auto& client : clients) EXPECT_TRUE(succeeded(std::move(client)));
}

TEST_F(HTTPTransportTest, ServesOthersBesideFiveHundredClientsThatStall) {
  std::vector<RawClient> stalled;
  for (std::size_t i = 0; i < 500; ++i) {
    stalled.push_back(send(echo.substr(0, i % 2 == 0 ? 0 : i % echo.size())));
  }
  EXPECT_TRUE(comesToHold(500));
  EXPECT_TRUE(serves());
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
  std::vector<SocketDescriptor> fill;
  while (fill.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC))) {
  }
  for (auto& client : clients) {
    ASSERT_TRUE(client.connect(transport_->port()));
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

TEST_F(HTTPTransportTest, KeepsNothingOfTenThousandConnections) {
  ASSERT_TRUE(serves());
  ASSERT_TRUE(comesToHold(0));
  const auto before = openDescriptors();
  for (int i = 0; i < 10'000; ++i) {
    // Served, given up half-way, and gone at once.
    auto client = send(i % 4 == 0 ? echo.substr(0, 40) : echo);
    ASSERT_TRUE(i % 4 < 2 || succeeded(std::move(client)));
  }
  EXPECT_TRUE(comesToHold(0));
  EXPECT_TRUE(eventually([&] { return openDescriptors() == before; }));
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

TEST_F(HTTPTransportTest, RefusesATakenPortAndFreesItsOwnAtOnce) {
  EXPECT_THROW(start(transport_->port()), Failure);
  // What was connected before the stop finishes by itself.
  auto open = send(echo.substr(0, 30));
  ASSERT_TRUE(comesToHold(1));
  transport_->stop();
  EXPECT_FALSE(RawClient().connect(transport_->port()));
  const auto stopped = std::exchange(transport_, start(transport_->port()));
  EXPECT_TRUE(serves());
  open.send(echo.substr(30));
  EXPECT_TRUE(succeeded(std::move(open)));
}

struct Case {
  std::string bytes;
  /// "METHOD|PATH|name=value;name=value;|BODY", or nothing when there is no request.
  std::string expected;
  bool clientMaySendMore = false;
};

const Case cases[] = {
    {"POST /rpc HTTP/1.1\r\nHost: x\r\nContent-Length: 2\r\n\r\n{}", "POST|/rpc|content-length=2;host=x;|{}"},
    {"POST  /rpc HTTP/1.1\r\n\r\n", "POST|||"},
    {" POST /rpc\r\n\r\n", "|POST||"},
    {"GET /\xff x\r\n\r\n", ""},
    {"GET / x\r\nA: b\r\n\r", ""},
    {"GET / x\r\nA: b\r\r\n\r\n", "GET|/|a=b\r;|"},
    {"GET / x\r\nA-B: \t v w \t\r\nC : d:e\r\n\r\n", "GET|/|a-b=v w;c =d:e;|"},
    {"GET / x\r\nno colon\r\n:v\r\nB:\r\n:\r\nC: \r\n\r\n", "GET|/|c=;|"},
    {"POST / x\r\nA: 9\r\na:1\r\na:\r\n\r\n", "POST|/|a=1;|"},
    {"POST / x\r\nContent-Length: +1\r\n\r\nab", "POST|/|content-length=+1;|a", true},
    {"POST / x\r\nContent-Length: -5\r\n\r\nabc", "POST|/|content-length=-5;|", true},
    {"GET / x\r\nContent-Length: 9223372036854775808\r\n\r\n", "GET|/|content-length=9223372036854775808;|",
     true},
    {"POST / x\r\nContent-Length: 9223372036854775807\r\n\r\nabc", ""},
    {"POST / x\r\nContent-Length: 6\r\n\r\n\r\n\r\n\0a"s, "POST|/|content-length=6;|\r\n\r\n\0a"s},
    {"POST / x\r\nTransfer-Encoding: chunked\r\n\r\n", "POST|/|transfer-encoding=chunked;|", true},
    {"GET /1 x\r\n\r\nGET /2 x\r\n\r\n", "GET|/1||", true},
};

TEST(HTTPRequestParser, YieldsTheSameRequestHoweverTheBytesAreCut) {
  for (const auto& test : cases) {
    for (const auto size : {std::size_t{1}, std::size_t{2}, std::size_t{3}, test.bytes.size()}) {
      HTTPRequestParser parser;
      std::string found;
      for (std::size_t at = 0; at < test.bytes.size(); at += size) {
        const auto request = parser.feed(std::string_view(test.bytes).substr(at, size));
        if (!request) continue;
        found += request->method + "|" + request->path + "|";
        for (const auto& [name, value] : request->headers) found += name + "=" + value + ";";
        found += "|" + request->body;
      }
      EXPECT_EQ(found, test.expected) << size;
      EXPECT_EQ(!found.empty() && parser.clientMaySendMore(), test.clientMaySendMore) << found;
    }
  }
}

TEST(HTTPRequestParser, SearchesAHeadThatNeverEndsOnlyOnce) {
  HTTPRequestParser endless;
  for (int i = 0; i < 20 * 1024; ++i) ASSERT_FALSE(endless.feed(std::string(1024, 'x')));
}

}  // namespace
}  // namespace vorlane
