#include "base/Failure.h"
#include "base/SHA256.h"
#include "base/ShellLog.h"
#include "base/tasks/Runtime.h"
#include "platform/Platform.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <boost/asio/post.hpp>

#include <atomic>
#include <future>
#include <thread>

namespace vorlane {
namespace {

using ::testing::HasSubstr;

using Count = std::atomic<int>;

/// Waits for what another process brings.
bool reaches(const Count& calls, int least) {
  for (int tries = 10'000; calls < least && tries > 0; --tries)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return calls >= least;
}

struct SignalCenterTest : ::testing::Test {
  testing::TemporaryFolder folder;
  Runtime runtime;
  std::string signals = folder.path("deep/signals");
  std::unique_ptr<SignalCenter> center = makeSignalCenter(signals, runtime.io(), runtime.concurrent());
  Count heard = 0;

  Observation count(SignalCenter& at, const std::string& name, Count& calls) {
    return at.observe(name, [&] { ++calls; });
  }

  static std::string file(const std::string& name) { return "deep/signals/" + sha256Hex(name); }
  /// As another process does.
  void postByHand(const std::string& name) const { folder.write(file(name), ""); }
  /// Posts a signal of another process and waits for it: whatever was to come before has then come.
  void flush() {
    Count arrived = 0;
    const auto observation = count(*center, "flush", arrived);
    postByHand("flush");
    EXPECT_TRUE(reaches(arrived, 1));
  }
  /// Keeps the thread that watches busy until the promise goes.
  std::promise<void> stallWatching() {
    std::promise<void> entered, gate;
    boost::asio::post(runtime.io(), [&, end = gate.get_future()]() mutable {
      entered.set_value();
      end.wait();
    });
    entered.get_future().wait();
    return gate;
  }
};

TEST_F(SignalCenterTest, EachThreadHearsItsOwnPostsOnceBeforePostReturnsAmidForeignOnes) {
  constexpr int rounds = 100;
  const auto foreign = count(*center, "foreign", heard);
  Count own[4] = {};
  std::vector<Observation> counting;
  std::vector<std::jthread> threads;
  for (auto& mine : own) {
    const auto name = std::to_string(&mine - own);
    counting.push_back(count(*center, name, mine));
    threads.emplace_back([&, name] {
      for (int i = 1; i <= rounds; ++i) {
        std::thread::id ranOn;
        const auto brief = center->observe(name, [&] { ranOn = std::this_thread::get_id(); });
        const auto nested = center->observe(name, [&] { center->post("nobody's"); });
        center->post(name);
        EXPECT_EQ(mine, i);
        EXPECT_EQ(ranOn, std::this_thread::get_id());
      }
    });
  }
  for (int i = 0; i < 3 * rounds; ++i) postByHand("foreign");
  threads.clear();
  flush();
  const int least = heard;
  {
    const auto stalled = stallWatching();
    postByHand("foreign");
    center->post("x");  // which reads the foreign one too
  }
  EXPECT_TRUE(reaches(heard, least + 1));
  flush();
  for (const auto& mine : own) EXPECT_EQ(mine, rounds);
}

TEST_F(SignalCenterTest, AnotherProcessHearsItByTheFileAlone) {
  auto elsewhere = makeSignalCenter(signals, runtime.io(), runtime.concurrent());
  const std::string odd = "com.vorlane.store.ledgerly.a/../b |\xc3\xa9.changed";
  const auto first = count(*elsewhere, odd, heard);
  center->post(odd);
  EXPECT_TRUE(reaches(heard, 1));
  postByHand(odd);
  EXPECT_TRUE(reaches(heard, 2));
  EXPECT_EQ(folder.mode(file(odd)), 0600U);
  EXPECT_EQ(folder.read(file(odd)), "");
  EXPECT_EQ(folder.mode("deep/signals"), 0700U);
  // An observation may outlive its centre.
  elsewhere.reset();
  postByHand(odd);
}

TEST_F(SignalCenterTest, AnOverflowCountsAsEveryObservedSignal) {
  std::ifstream limitFile("/proc/sys/fs/inotify/max_queued_events");
  int limit = 0;
  ASSERT_TRUE(limitFile >> limit);
  const auto observation = count(*center, "quiet", heard);
  {
    const auto stalled = stallWatching();
    // Two names in turn, since equal neighbours are joined.
    for (int i = 0; i <= limit + 2; ++i) postByHand(i % 2 == 0 ? "a" : "b");
  }
  EXPECT_TRUE(reaches(heard, 1));
}

TEST_F(SignalCenterTest, AFolderThatGoesIsMadeAgainAndWatchedAndWhatCannotBeSentIsHeardHere) {
  installShellLog(ShellLog(folder.path("log"), "test"));
  const auto observation = count(*center, "x", heard);
  int expected = 0;
  for (int round = 0; round < 2; ++round) {
    std::filesystem::remove_all(signals);
    EXPECT_TRUE(center->post("x"));
    EXPECT_GE(heard, ++expected);
    expected = heard;
    postByHand("x");
    EXPECT_TRUE(reaches(heard, ++expected));
    flush();
    expected = heard;
  }
  const auto log = folder.read("log");
  EXPECT_THAT(log, HasSubstr("had gone"));
  EXPECT_EQ(log.find("had gone"), log.rfind("had gone")) << "logged once";

  {
    const auto stalled = stallWatching();
    std::filesystem::remove_all(signals);
    folder.write("deep/signals", "");
    EXPECT_FALSE(center->post("x"));
    EXPECT_GE(heard, expected + 1) << "not sent, but heard here";
    EXPECT_THAT(folder.read("log"), HasSubstr(signals));
    EXPECT_THROW(makeSignalCenter(signals, runtime.io(), runtime.concurrent()), Failure);
    expected = heard;
  }
  // Whoever only observes comes back by itself when the way is free.
  std::filesystem::remove(signals);
  EXPECT_TRUE(reaches(heard, expected + 1));
  postByHand("x");
  EXPECT_TRUE(reaches(heard, expected + 2));
}

}  // namespace
}  // namespace vorlane
