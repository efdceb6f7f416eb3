#include "TemporaryFolder.h"
#include "base/Digest.h"
#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/Runtime.h"
#include "platform/Platform.h"

#include <gmock/gmock.h>
#include <boost/asio/post.hpp>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace vorlane {
namespace {

using ::testing::HasSubstr;

/// Counts its calls, and waits for them.
struct Counter {
  void operator()() {
    const std::scoped_lock hold(lock);
    ++calls;
    changed.notify_all();
  }
  int count() const {
    const std::scoped_lock hold(lock);
    return calls;
  }
  bool reaches(int least) const {
    std::unique_lock hold(lock);
    return changed.wait_for(hold, std::chrono::seconds(10), [&] { return calls >= least; });
  }

  mutable std::mutex lock;
  mutable std::condition_variable changed;
  int calls = 0;
};

struct SignalCenterTest : ::testing::Test {
  testing::TemporaryFolder folder;
  Runtime runtime;
  std::string signals = folder.path("deep/signals");
  std::unique_ptr<SignalCenter> center = makeSignalCenter(signals, runtime.io(), runtime.concurrent());
  Counter heard;

  static std::string file(const std::string& name) { return "deep/signals/" + sha256Hex(name); }
  /// As another process does.
  void postByHand(const std::string& name) const { folder.write(file(name), ""); }
  /// Posts a signal of another process and waits for it: whatever was to come before has then come.
  void flush() {
    Counter arrived;
    const auto observation = center->observe("flush", std::ref(arrived));
    postByHand("flush");
    EXPECT_TRUE(arrived.reaches(1));
  }
  /// Keeps the thread that watches busy until the promise goes.
  std::promise<void> stallWatching() {
    std::promise<void> entered;
    std::promise<void> gate;
    auto begun = entered.get_future();
    boost::asio::post(runtime.io(), [entered = std::move(entered), end = gate.get_future()]() mutable {
      entered.set_value();
      end.wait();
    });
    begun.wait();
    return gate;
  }
};

TEST_F(SignalCenterTest, EachThreadHearsItsOwnPostsOnceBeforePostReturnsAmidForeignOnes) {
  constexpr int rounds = 100;
  const auto foreign = center->observe("foreign", std::ref(heard));
  Counter own[4];
  std::vector<Observation> counting;
  std::vector<std::jthread> threads;
  for (auto& mine : own) {
    const auto name = std::to_string(&mine - own);
    counting.push_back(center->observe(name, std::ref(mine)));
    threads.emplace_back([&, name] {
      for (int i = 1; i <= rounds; ++i) {
        std::thread::id ranOn;
        const auto brief = center->observe(name, [&] { ranOn = std::this_thread::get_id(); });
        const auto nested = center->observe(name, [&] { center->post("nobody's"); });
        center->post(name);
        EXPECT_EQ(mine.count(), i);
        EXPECT_EQ(ranOn, std::this_thread::get_id());
      }
    });
  }
  for (int i = 0; i < 3 * rounds; ++i) postByHand("foreign");
  threads.clear();
  const int least = heard.count();
  postByHand("foreign");
  EXPECT_TRUE(heard.reaches(least + 1));
  flush();
  for (const auto& mine : own) EXPECT_EQ(mine.count(), rounds);
}

TEST_F(SignalCenterTest, AnotherProcessHearsItByTheFileAlone) {
  auto elsewhere = makeSignalCenter(signals, runtime.io(), runtime.concurrent());
  const std::string odd = "com.vorlane.store.ledgerly.a/../b |\xc3\xa9.changed";
  const auto first = elsewhere->observe(odd, std::ref(heard));
  center->post(odd);
  EXPECT_TRUE(heard.reaches(1));
  postByHand(odd);
  EXPECT_TRUE(heard.reaches(2));
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
  const auto observation = center->observe("quiet", std::ref(heard));
  {
    const auto stalled = stallWatching();
    // Two names in turn, since equal neighbours are joined.
    for (int i = 0; i <= limit + 2; ++i) postByHand(i % 2 == 0 ? "a" : "b");
  }
  EXPECT_TRUE(heard.reaches(1));
}

TEST_F(SignalCenterTest, AFolderThatGoesIsMadeAgainAndWatchedAndWhatCannotBeSentIsHeardHere) {
  installShellLog(ShellLog(folder.path("log"), "test"));
  const auto observation = center->observe("x", std::ref(heard));
  int expected = 0;
  for (int round = 0; round < 2; ++round) {
    std::filesystem::remove_all(signals);
    EXPECT_TRUE(center->post("x"));
    EXPECT_GE(heard.count(), ++expected);
    expected = heard.count();
    postByHand("x");
    EXPECT_TRUE(heard.reaches(++expected));
    flush();
    expected = heard.count();
  }
  const auto log = folder.read("log");
  EXPECT_THAT(log, HasSubstr("had gone"));
  EXPECT_EQ(log.find("had gone"), log.rfind("had gone")) << "logged once";

  {
    const auto stalled = stallWatching();
    std::filesystem::remove_all(signals);
    folder.write("deep/signals", "");
    EXPECT_FALSE(center->post("x"));
    EXPECT_GE(heard.count(), expected + 1) << "not sent, but heard here";
    EXPECT_THAT(folder.read("log"), HasSubstr(signals));
    EXPECT_THROW(makeSignalCenter(signals, runtime.io(), runtime.concurrent()), Failure);
    expected = heard.count();
  }
  // Whoever only observes comes back by itself when the way is free.
  std::filesystem::remove(signals);
  EXPECT_TRUE(heard.reaches(expected + 1));
  postByHand("x");
  EXPECT_TRUE(heard.reaches(expected + 2));
}

}  // namespace
}  // namespace vorlane
