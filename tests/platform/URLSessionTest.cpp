#include "base/Text.h"
#include "base/tasks/Runtime.h"
#include "base/tasks/Timing.h"
#include "devcloud/Server.h"
#include "platform/Platform.h"
#include "support/ServerThatMisbehaves.h"
#include "support/TaskHarness.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <atomic>
#include <thread>

namespace vorlane {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using boost::asio::ip::tcp;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Server = testing::ServerThatMisbehaves;
using Texts = std::vector<std::pair<std::string, std::string>>;

struct URLSessionTest : ::testing::Test {
  Runtime runtime;
  std::unique_ptr<URLSession> session = makeURLSession(std::nullopt);

  std::future<URLResponse> begin(URLRequest request) {
    return boost::asio::co_spawn(
        runtime.concurrent(), [raw = session.get(), request] { return raw->send(request); },
        boost::asio::use_future);
  }
  URLResponse send(URLRequest request) { return begin(std::move(request)).get(); }
  /// How a request that must fail did so.
  TransportFailure failureOf(URLRequest request) {
    try {
      send(std::move(request));
    } catch (const TransportFailure& failure) {
      return failure;
    }
    return {0, "no failure"};
  }
};

bool has(std::string_view request, std::string_view text) {
  return asciiLowercased(request).find(text) != std::string::npos;
}

TEST_F(URLSessionTest, SendsTheMethodHeadersAndBodyAsTheyAreAndReturnsTheWholeAnswer) {
  const Server server([](auto) -> Server::Answer {
    return {
        "HTTP/1.1 103 Early\r\nX-Early: 1\r\n\r\n"
        "HTTP/1.1 404 No\r\nX-One: a\r\nx-two:  b \r\nSet-Cookie: c=1\r\nContent-Length: 3\r\n\r\nabc"};
  });
  for (const auto& [method, body] :
       Texts{{"GET", ""}, {"POST", "{}"}, {"PUT", std::string(5000, 'x')}, {"DELETE", ""}, {"GET", "b"}}) {
    const Texts headers{{"X-Sent", "v"}, {"X-Empty", ""}};
    const auto answer = send({method, server.url("/p?q=1"), headers, body});
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.body, "abc");
    EXPECT_EQ(answer.url, server.url("/p?q=1"));
    EXPECT_EQ(answer.header("X-TWO"), "b");
    EXPECT_FALSE(answer.header("X-Early"));
    const auto request = server.requests().back();
    EXPECT_TRUE(request.starts_with(method + " /p?q=1 HTTP/1.1\r\n")) << request;
    EXPECT_TRUE(request.ends_with("\r\n\r\n" + body)) << request;
    EXPECT_TRUE(has(request, "\r\nx-sent: v\r\nx-empty:")) << request;
    // Nothing of the library's own, and no cookie of an earlier answer.
    for (const auto* unwanted : {"expect:", "content-type:", "cookie:", "user-agent:"}) {
      EXPECT_FALSE(has(request, unwanted)) << request;
    }
  }
}

TEST_F(URLSessionTest, FollowsRedirectsAsToldAndKeepsTheTokenForTheFirstHost) {
  const Server last([](auto) { return Server::answer(200, "arrived"); });
  const Server first([&](std::string_view request) {
    if (request.find("/loop") != std::string_view::npos) return Server::redirect(302, "/loop");
    if (request.find("/file") != std::string_view::npos) return Server::redirect(302, "file:///etc/passwd");
    return Server::redirect(302, last.url("/end"));
  });
  URLRequest request{
      .method = "POST", .url = first.url(), .headers = {{"Authorization", "Bearer t"}}, .body = "x"};
  const auto answer = send(request);
  EXPECT_EQ(answer.url, last.url("/end"));
  EXPECT_TRUE(last.requests().front().starts_with("GET /end"));
  EXPECT_FALSE(has(last.requests().front(), "authorization"));
  EXPECT_TRUE(has(first.requests().front(), "authorization: bearer t"));

  request.followRedirects = false;
  const auto unfollowed = send(request);
  EXPECT_EQ(unfollowed.status, 302);
  EXPECT_EQ(unfollowed.header("location"), last.url("/end"));
  EXPECT_THAT(failureOf({.url = first.url("/loop")}).description(), HasSubstr("127.0.0.1"));
  EXPECT_NE(failureOf({.url = first.url("/file")}).code(), 0);
}

TEST_F(URLSessionTest, EveryMisbehaviourIsAFailureThatNamesTheHostAndNoSecret) {
  std::string headers;
  for (int i = 0; i < 30'000; ++i) headers += fmt::format("X-{}: {}\r\n", i, std::string(40, 'x'));
  const std::pair<std::string_view, Server::Answer> behaviours[] = {
      {"cut in the middle", {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nhalf an ans"}},
      {"reset", {.bytes = {}, .end = Server::Answer::End::reset}},
      {"closed at once", {}},
      {"garbage", {"\x16\x03\x01 what is this\r\n\r\n"}},
      {"too long", Server::answer(200, std::string(2000, 'x'))},
      {"endless headers", {"HTTP/1.1 200 OK\r\n" + headers}},
      {"never answered", Server::neverAnswer()},
      {"silent", Server::neverAnswer()},
  };
  for (const auto& [name, answer] : behaviours) {
    const Server server([&answer](auto) { return answer; });
    URLRequest request{"POST", server.url("/?token=s3cret"), {{"Authorization", "Bearer s3cret"}}, "s3cret"};
    request.maximumBody = 1000;
    if (name == "never answered") request.timeout = 100ms;
    if (name == "silent") request.idleTimeout = 1s;
    const auto failure = failureOf(request);
    EXPECT_NE(failure.code(), 0) << name;
    EXPECT_THAT(failure.description(), AllOf(HasSubstr("127.0.0.1"), Not(HasSubstr("s3cret")))) << name;
  }
  const auto closed = Server([](auto) { return Server::Answer(); }).url();
  EXPECT_THAT(failureOf({.url = closed}).description(), HasSubstr("127.0.0.1"));
}

TEST_F(URLSessionTest, ARequestThatMustNotBeRepeatedIsNotWhenAKeptConnectionBreaks) {
  for (const bool once : {false, true}) {
    // The first request of a connection is answered; the second is read, and then it is closed.
    std::atomic<int> acted = 0;
    boost::asio::io_context context;
    tcp::acceptor acceptor(context, {boost::asio::ip::make_address("127.0.0.1"), 0});
    std::thread server([&] {
      for (int connection = 0; connection < 2; ++connection) {
        tcp::socket socket(context);
        boost::system::error_code ended;
        acceptor.accept(socket, ended);
        std::string request;
        const auto receives = [&] {
          request.clear();
          return boost::asio::read_until(socket, boost::asio::dynamic_buffer(request), "body", ended) > 0;
        };
        while (!ended && receives() && ++acted != 2)
          boost::asio::write(socket, boost::asio::buffer("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"s),
                             ended);
      }
    });
    const auto url = fmt::format("http://127.0.0.1:{}/", acceptor.local_endpoint().port());
    const URLRequest request{.method = "POST", .url = url, .body = "body", .retryOnStaleConnection = !once};
    EXPECT_EQ(send(request).status, 200);
    EXPECT_TRUE(once ? failureOf(request).code() != 0 : send(request).status == 200);
    EXPECT_EQ(acted, once ? 2 : 3);
    session = makeURLSession(std::nullopt);  // which closes what was kept
    ::shutdown(acceptor.native_handle(), SHUT_RDWR);
    server.join();
  }
}

TEST_F(URLSessionTest, ARequestThatCannotBeSentAsItIsIsRefusedBeforeItIsSent) {
  const Server server([](auto) { return Server::answer(200, ""); });
  const auto url = server.url();
  const std::string nul("\0", 1);
  std::vector<URLRequest> refused{{.method = "GET / HTTP/1.1\r\nX: y", .url = url},
                                  {.method = "", .url = url}};
  for (const auto& text : {""s, "REPLACE_WITH/x"s, "file:///a"s, "http://"s, url + "\r\nX: y", url + nul})
    refused.push_back({.url = text});
  for (const auto& header :
       Texts{{"X", "a\ns3cret"}, {"X", "s3cret" + nul}, {"X: s3cret\r\nY", "a"}, {"", "a"}})
    refused.push_back({.url = url, .headers = {header}});
  for (const auto& request : refused) {
    const auto failure = failureOf(request);
    EXPECT_NE(failure.code(), 0) << request.url;
    EXPECT_THAT(failure.description(), Not(HasSubstr("s3cret")));
  }
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(URLSessionTest, FiveHundredRequestsToOneHostRunAtOnce) {
  constexpr std::size_t count = 500;
  Server server([](auto) {
    auto late = Server::answer(200, "late");
    late.whenReleased = true;
    return late;
  });
  std::vector<std::future<URLResponse>> answers;
  for (std::size_t i = 0; i < count; ++i) answers.push_back(begin({.url = server.url()}));
  EXPECT_TRUE(server.waitForRequests(count));
  server.release();
  for (auto& answer : answers) EXPECT_EQ(answer.get().body, "late");
}

TEST_F(URLSessionTest, LongAnswersTogetherStayWithinOneBoundWhichTheLongestPaysAndNeverAShortOne) {
  constexpr std::size_t length = 50 << 20;
  const Server server([](std::string_view request) {
    return Server::answer(200, std::string(request.starts_with("GET /short") ? 9 : length, 'x'));
  });
  std::vector<std::future<URLResponse>> answers;
  std::vector<URLResponse> held;
  for (int i = 0; i < 3; ++i) answers.push_back(begin({.url = server.url(), .maximumBody = length}));
  for (auto& answer : answers) {
    try {
      held.push_back(answer.get());
    } catch (const TransportFailure& failure) {
      EXPECT_THAT(failure.description(), HasSubstr("the answers under way are too long together"));
    }
  }
  EXPECT_EQ(held.size(), 2U);
  EXPECT_EQ(send({.url = server.url("/short")}).body.size(), 9U);
  EXPECT_NE(failureOf({.url = server.url()}).code(), 0) << "as long as they are held";
  held.clear();
  EXPECT_EQ(send({.url = server.url(), .maximumBody = length}).body.size(), length);
}

TEST_F(URLSessionTest, CancellingOrTheEndOfTheSessionCutsTheTransfer) {
  const Server server([](auto) { return Server::neverAnswer(); });
  const auto sendWithin = [&](std::chrono::milliseconds limit, const Server& to) {
    return testing::await<URLResponse>(runtime.concurrent(), [&] {
      return withTimeout<URLResponse>(limit, "the request", [this, url = to.url()]() -> Task<URLResponse> {
        return session->send({.url = url});
      });
    });
  };
  EXPECT_THROW(sendWithin(20ms, server), TimeoutFailure);
  EXPECT_TRUE(server.waitForClosed(1));

  // Cancellations that race with the answer: each ends, one way or the other.
  const Server quick([](auto) { return Server::answer(200, "quick"); });
  for (int i = 0; i < 100; ++i) {
    try {
      EXPECT_EQ(sendWithin(std::chrono::milliseconds(i % 5), quick).body, "quick");
    } catch (const TimeoutFailure&) {
      continue;
    }
  }

  auto left = begin({.url = server.url()});
  ASSERT_TRUE(server.waitForRequests(2));
  session.reset();
  EXPECT_THROW(left.get(), TransportFailure);
}

TEST_F(URLSessionTest, AnExtraCertificateIsTrustedBesideTheSystems) {
  const testing::TemporaryFolder folder;
  devcloud::Server server(devcloud::loadOrMakeCertificates(folder.path(), now()), 0);
  server.run([](devcloud::Request) -> Task<devcloud::Response> {
    co_return devcloud::Response{.body = "over TLS"};
  });
  const URLRequest request{.url = fmt::format("https://127.0.0.1:{}/", server.port())};
  EXPECT_NE(failureOf(request).code(), 0) << "a certificate that nobody trusts was taken";
  session = makeURLSession(folder.path("ca.pem"));
  EXPECT_EQ(send(request).body, "over TLS");
  folder.write("none.pem", "no certificate");
  for (const auto* unusable : {"none.pem", "missing.pem"}) {
    EXPECT_THAT([&] { makeURLSession(folder.path(unusable)); },
                ::testing::ThrowsMessage<Failure>(HasSubstr(unusable)));
  }
}

}  // namespace
}  // namespace vorlane
