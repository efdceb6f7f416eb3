#include "base/tasks/Runtime.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/TaskContext.h"
#include "base/tasks/TaskGroup.h"
#include "base/tasks/Timing.h"
#include "support/TaskHarness.h"

#include <gtest/gtest.h>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/use_future.hpp>

#include <future>
#include <thread>

namespace vorlane::testing {
namespace {

namespace asio = boost::asio;

struct Mark : TaskContext {
  explicit Mark(int number) : number(number) {}
  int number;
};

int markHere() {
  const auto* mark = dynamic_cast<const Mark*>(currentTaskContext().get());
  return mark == nullptr ? 0 : mark->number;
}

/// Wanders over threads, a shared strand and children, and counts each place
/// where another context than its own is seen.
Task<int> wander(int number, Executor strand) {
  int strangers = 0;
  const auto look = [number, &strangers]() -> Task<int> {
    strangers += markHere() == number ? 0 : 1;
    co_await asio::post(asio::use_awaitable);
    co_return markHere() == number ? 0 : 1;
  };
  for (int i = 0; i < 10; ++i) {
    strangers += co_await look();
    strangers += co_await onExecutor(strand, look);
    strangers += co_await asio::co_spawn(co_await asio::this_coro::executor, look, asio::use_awaitable);
    strangers += co_await withTimeout<int>(std::chrono::seconds(60), "The look", look);
  }
  co_return strangers;
}

TEST(TaskContexts, FollowATaskEverywhereAndReachNoOther) {
  Runtime runtime;
  const Executor strand = asio::make_strand(runtime.concurrent());
  std::vector<std::future<int>> tasks;
  for (int number = 0; number < 120; ++number) {
    // Every third task has no context and must never see one.
    const bool bare = number % 3 == 0;
    auto executor = bare ? runtime.concurrent()
                         : executorWithContext(runtime.concurrent(), std::make_shared<Mark>(number));
    tasks.push_back(asio::co_spawn(
        executor, [number, bare, strand] { return wander(bare ? 0 : number, strand); }, asio::use_future));
  }
  for (auto& task : tasks) EXPECT_EQ(task.get(), 0);
  EXPECT_EQ(currentTaskContext(), nullptr);
}

TEST(TaskContexts, AreThereFromTheStartOfATaskThatBeginsOnTheCallersThread) {
  Runtime runtime;
  const Executor strand = asio::make_strand(runtime.concurrent());
  std::vector<std::future<int>> tasks;
  for (int number = 1; number <= 40; ++number) {
    const auto strangers = std::make_shared<std::promise<int>>();
    tasks.push_back(strangers->get_future());
    spawnHere(runtime.concurrent(), std::make_shared<Mark>(number), "wanderer",
              [=, caller = std::this_thread::get_id()]() -> Task<> {
                const bool here = std::this_thread::get_id() == caller && markHere() == number;
                const int seen = co_await wander(number, strand);
                strangers->set_value(seen + (here && std::this_thread::get_id() != caller ? 0 : 1));
              });
    EXPECT_EQ(currentTaskContext(), nullptr);
  }
  for (auto& task : tasks) EXPECT_EQ(task.get(), 0);
}

TEST(TaskContexts, GoWithTheWorkThatCarriesThem) {
  TaskHarness bench;
  auto mark = std::make_shared<Mark>(7);
  const std::weak_ptr<Mark> watch = mark;
  asio::post(executorWithContext(bench.executor(), std::move(mark)), [] { EXPECT_EQ(markHere(), 7); });
  EXPECT_FALSE(watch.expired());
  bench.settle();
  EXPECT_TRUE(watch.expired());
}

TEST(TaskContexts, StayBehindWhenWorkBeginsOnTheStackOfWhoeverSpawnsIt) {
  TaskHarness bench;
  const auto own = executorWithContext(bench.executor(), std::make_shared<Mark>(7));
  std::vector<int> seen;
  const auto note = [&seen]() -> Task<> { co_return seen.push_back(markHere()); };
  TaskGroup group;
  asio::post(own, [&] {
    for (const auto& executor : {bench.executor(), own}) {
      spawn(executor, "look", note);
      group.spawn(executor, "look", note);
    }
  });
  bench.settle();
  std::ranges::sort(seen);
  EXPECT_EQ(seen, (std::vector{0, 0, 7, 7}));
}

}  // namespace
}  // namespace vorlane::testing
