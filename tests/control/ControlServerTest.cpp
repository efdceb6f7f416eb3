#include "control/ControlServer.h"

#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "control/ControlClient.h"
#include "support/RawClient.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace vorlane {
namespace {

using namespace std::chrono_literals;

class ControlServerTest : public testing::Test {
 protected:
  /// "echo" gives the message back, "fail" fails, "hang" waits until it is cancelled.
  ControlCommands commands() {
    ControlCommands all;
    all.add("echo", [](JSONMap message, Progress) -> Task<JSONMap> { co_return message; });
    all.add("fail", [](JSONMap, Progress) -> Task<JSONMap> {
      throw Failure("no such account");
      co_return JSONMap();
    });
    all.add("steps", [](JSONMap, Progress progress) -> Task<JSONMap> {
      for (int i = 1; i <= 3; ++i) progress({{"step", i}});
      co_return JSONMap{{"event", "none"}};
    });
    all.add("hang", [this](JSONMap, Progress progress) -> Task<JSONMap> {
      progress({{"begun", true}});
      Event never;
      try {
        co_await never.wait();
      } catch (const CancelledFailure&) {
        cancelled_ = true;
        throw;
      }
      co_return JSONMap();
    });
    return all;
  }

  void start(ControlServer::Limits limits = {}) {
    server_ =
        std::make_unique<ControlServer>(path_, runtime_.io(), runtime_.concurrent(), commands(), limits);
    server_->start();
  }

  /// The answer as text, or what kept it from coming.
  std::string request(const JSONMap& message) {
    try {
      return writeJSON(ControlClient::request(path_, message, {.patience = 60s}));
    } catch (const Failure& failure) {
      return failure.description();
    }
  }
  std::string echo() { return request({{"command", "echo"}}); }

  ~ControlServerTest() override { std::filesystem::remove(path_); }

  std::atomic<bool> cancelled_ = false;
  Runtime runtime_;
  const std::string path_ = fmt::format("{}control-{}.sock", testing::TempDir(), ::getpid());
  std::unique_ptr<ControlServer> server_;
};

TEST_F(ControlServerTest, AnswersEachLineAndSaysWhatIsWrongWithIt) {
  start();
  RawClient client(path_);
  client.send("\r\n[]\n{\n{\"command\":1}\n{\"command\":\"fail\"}\n{\"command\":\"echo\"}\r\n{\"cut");
  client.endSending();
  const auto answers = client.receiveAll();
  EXPECT_THAT(answers, testing::StartsWith("{\"error\":\"not a JSON object\",\"ok\":false}\n{\"error\":"));
  EXPECT_THAT(answers, testing::EndsWith("{\"error\":\"the message has no \\\"command\\\"\",\"ok\":false}\n"
                                         "{\"error\":\"no such account\",\"ok\":false}\n"
                                         "{\"command\":\"echo\",\"ok\":true}\n"));
}

TEST_F(ControlServerTest, BoundsLinesConnectionsAndIdleTime) {
  start({.connections = 2});
  RawClient endless(path_);
  endless.send(std::string(controlLineLimit + 1, ' '));
  EXPECT_EQ(endless.receiveAll(), "{\"error\":\"a line may have 1048576 bytes at most\",\"ok\":false}\n");
  ASSERT_TRUE(eventually([&] { return echo() == R"({"command":"echo"})"; }));
  const RawClient first(path_), second(path_);
  ASSERT_TRUE(eventually([&] { return echo() == "all 2 connections are in use"; }));
  server_ = nullptr;
  start({.idleTimeout = 50ms});
  EXPECT_EQ(RawClient(path_).receiveAll(), "");
}

TEST_F(ControlServerTest, TellsTheStepsOfTheWorkBeforeItsAnswer) {
  start();
  std::string steps;
  const auto answer = ControlClient::request(
      path_, {{"command", "steps"}}, {.onEvent = [&](const JSONMap& event) { steps += writeJSON(event); }});
  EXPECT_EQ(steps, R"({"step":1}{"step":2}{"step":3})");
  EXPECT_EQ(writeJSON(answer), R"({"event":"none"})");
}

TEST_F(ControlServerTest, CancelsACommandWhenItsCallerGoesButNotWhenItOnlyEndsItsSending) {
  start();
  {
    RawClient caller(path_);
    caller.send("{\"command\":\"hang\"}\n");
    EXPECT_EQ(caller.receiveLine(), "{\"event\":{\"begun\":true}}\n");
    caller.endSending();
    EXPECT_EQ(echo(), R"({"command":"echo"})");
    EXPECT_FALSE(cancelled_);
  }
  EXPECT_TRUE(eventually([&] { return cancelled_.load(); }));
}

TEST_F(ControlServerTest, ClearsAStaleSocketButNothingElseAndLeavesNoFile) {
  {
    auto crashed = controlAddress(path_);
    const FileDescriptor left(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(::bind(left.get(), reinterpret_cast<sockaddr*>(&crashed), sizeof crashed), 0);
  }
  EXPECT_EQ(echo(), "no agent is listening at " + path_);
  start();
  EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
  // What is connected when the server stops sees the end.
  RawClient open(path_);
  EXPECT_EQ(echo(), R"({"command":"echo"})");
  server_->stop();
  EXPECT_EQ(open.receiveAll(), "");
  EXPECT_FALSE(std::filesystem::exists(path_));

  std::ofstream(path_) << "precious";
  EXPECT_THROW(start(), Failure);
  EXPECT_TRUE(std::filesystem::exists(path_));
}

}  // namespace
}  // namespace vorlane
