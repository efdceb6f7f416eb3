#include "platform/InstanceLock.h"

#include "TemporaryFolder.h"
#include "base/Failure.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>

namespace vorlane {
namespace {

struct InstanceLockTest : ::testing::Test {
  testing::TemporaryFolder folder;
  std::string path = folder.path("agent.lock");
};

TEST_F(InstanceLockTest, OneHolderAtATimeWhoseIdTheFileTellsAndWaitersAreNotFooledByARemovedFile) {
  folder.write("agent.lock", "a stale and longer text of a process that was killed\n");
  auto held = InstanceLock::tryAcquire(path);
  ASSERT_TRUE(held);
  EXPECT_EQ(folder.read("agent.lock"), fmt::format("{}\n", ::getpid()));
  for (const bool removed : {false, true}) {
    EXPECT_FALSE(InstanceLock::tryAcquire(path));
    auto waiting = std::async(std::launch::async, [&] { return InstanceLock::acquire(path); });
    // The waiter must end with a lock on the file that has the name then.
    if (removed) std::filesystem::remove(path);
    held.reset();
    held.emplace(waiting.get());
    EXPECT_FALSE(InstanceLock::tryAcquire(path)) << removed;
  }
}

TEST_F(InstanceLockTest, IsFreeOnceItsProcessIsKilled) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const auto held = InstanceLock::tryAcquire(path);
    [[maybe_unused]] const auto told = ::write(ready[1], held ? "y" : "n", 1);
    ::pause();
  }
  char answer = 0;
  ASSERT_EQ(::read(ready[0], &answer, 1), 1);
  EXPECT_FALSE(InstanceLock::tryAcquire(path));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_TRUE(InstanceLock::tryAcquire(path));
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
