#include "platform/InstanceLock.h"

#include "base/Failure.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>

namespace vorlane {
namespace {

// That it is free once its process is killed is tested with the whole agent.
struct InstanceLockTest : ::testing::Test {
  testing::TemporaryFolder folder;
  std::string path = folder.path("agent.lock");

  /// How many descriptors of this process are of the file.
  std::ptrdiff_t timesOpen() const {
    return std::ranges::count_if(std::filesystem::directory_iterator("/proc/self/fd"),
                                 [&](const auto& entry) {
                                   std::error_code gone;
                                   return std::filesystem::read_symlink(entry, gone) == path;
                                 });
  }
};

TEST_F(InstanceLockTest, OneHolderAtATimeWhoseIdTheFileTellsAndWaitersAreNotFooledByARemovedFile) {
  folder.write("agent.lock", "a stale and longer text of a process that was killed\n");
  auto held = InstanceLock::tryAcquire(path);
  ASSERT_TRUE(held);
  EXPECT_EQ(folder.read("agent.lock"), fmt::format("{}\n", ::getpid()));
  for (const bool removed : {false, true}) {
    EXPECT_FALSE(InstanceLock::tryAcquire(path));
    auto waiting = std::async(std::launch::async, [&] { return InstanceLock::acquire(path); });
    // Once it has opened this file, it must end with a lock on the one that has the name then.
    while (timesOpen() < 2) std::this_thread::yield();
    if (removed) std::filesystem::remove(path);
    held.reset();
    held.emplace(waiting.get());
    EXPECT_FALSE(InstanceLock::tryAcquire(path)) << removed;
  }
}

TEST_F(InstanceLockTest, RefusesWhatIsNoPlainFile) {
  folder.write("target", "keep");
  folder.link("link", "target");
  for (const auto& wrong : {folder.path("link"), folder.path(), folder.path("none/agent.lock")}) {
    EXPECT_THROW(InstanceLock::tryAcquire(wrong), Failure) << wrong;
  }
  EXPECT_EQ(folder.read("target"), "keep");
}

}  // namespace
}  // namespace vorlane
