#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/AsyncMutex.h"
#include "base/tasks/Event.h"
#include "base/tasks/Runtime.h"
#include "base/tasks/SharedTask.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/TaskGroup.h"
#include "base/tasks/Timing.h"
#include "support/TaskHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <boost/asio/use_future.hpp>

#include <filesystem>
#include <fstream>
#include <thread>

namespace vorlane::testing {
namespace {

using namespace std::chrono_literals;

TaskBody waitingFor(std::shared_ptr<Event> event) {
  return [event]() -> Task<> { co_await event->wait(); };
}

/// True when the work has ended.
std::function<Task<bool>()> afterwards(TaskBody work) {
  return [work]() -> Task<bool> {
    co_await work();
    co_return true;
  };
}

Task<int> answerAfter(std::shared_ptr<Event> event) {
  co_await event->wait();
  co_return 42;
}

Task<int> failAfter(std::shared_ptr<Event> event) {
  co_await event->wait();
  throw Failure("no answer");
}

TEST(SpawnedTasks, AFailureEndsInTheLogAndACancellationDoesNot) {
  const auto path = "/tmp/vorlane-tasks-" + std::to_string(getpid()) + ".log";
  installShellLog(ShellLog(path, "test"));
  TaskHarness bench;
  int ended = 0;
  const auto throwing = [&](const char* name, auto failure) {
    const auto body = [failure]() -> Task<> {
      throw failure;
      co_return;
    };
    spawn(bench.executor(), name, body, [&ended] { ++ended; });
  };
  throwing("fetcher", Failure("no route"));
  throwing("odd one", 7);
  throwing("quiet one", CancelledFailure());
  bench.settle();
  EXPECT_EQ(ended, 3);
  std::vector<std::string> messages;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) messages.push_back(line.substr(line.find("] ") + 2));
  EXPECT_THAT(messages, ::testing::ElementsAre("fetcher failed: no route", "odd one failed"));
  std::filesystem::remove(path);
}

TEST(Groups, AreCancelledAndJoinedAsOne) {
  TaskHarness bench;
  TaskGroup group;
  const auto never = std::make_shared<Event>(), soon = std::make_shared<Event>();
  group.spawn(bench.executor(), "waiter", waitingFor(never));
  group.spawn(bench.executor(), "short", waitingFor(soon));
  const auto joined = bench.start<bool>(afterwards([&group] { return group.join(); }));
  bench.settle();
  soon->set();
  bench.settle();
  EXPECT_EQ(group.size(), 1U);
  EXPECT_FALSE(joined->ended);
  group.cancel();
  group.spawn(bench.executor(), "late", waitingFor(never));
  bench.settle();
  EXPECT_TRUE(joined->ended);
  EXPECT_EQ(group.size(), 0U);
}

TEST(Groups, ACancelThatMeetsASpawnIsNeverLost) {
  Runtime runtime;
  const auto never = std::make_shared<Event>();
  for (int round = 0; round < 300; ++round) {
    TaskGroup group;
    std::thread spawner([&] {
      for (int i = 0; i < 5; ++i) group.spawn(runtime.concurrent(), "waiter", waitingFor(never));
    });
    group.cancel();
    spawner.join();
    ASSERT_TRUE(await<bool>(runtime.concurrent(), afterwards([&group] { return group.join(); })));
  }
}

TEST(Events, WakeEverybodyWhoWaitsOrComesLater) {
  Runtime runtime;
  TaskHarness bench;
  Event event;
  const auto wait = afterwards([&event] { return event.wait(); });
  std::vector<std::future<bool>> elsewhere;
  for (int i = 0; i < 20; ++i) {
    elsewhere.push_back(co_spawn(runtime.concurrent(), wait, boost::asio::use_future));
  }
  const auto cancelled = bench.start<bool>(wait), patient = bench.start<bool>(wait);
  bench.settle();
  cancelled->cancel();
  bench.settle();
  EXPECT_TRUE(cancelled->wasCancelled() && !patient->ended);
  event.set();
  bench.settle();
  EXPECT_TRUE(patient->value);
  EXPECT_TRUE(bench.run<bool>(wait));
  for (auto& each : elsewhere) EXPECT_TRUE(each.get());
}

TEST(AsyncMutexes, AreHandedOnInTurnAndPastThoseWhoGaveUp) {
  TaskHarness bench;
  AsyncMutex mutex;
  std::string order;
  const auto holding = [&](char name, std::shared_ptr<Event> until) {
    return bench.start<bool>([&, name, until]() -> Task<bool> {
      const auto hold = co_await mutex.lock();
      order += name;
      co_await until->wait();
      co_return true;
    });
  };
  const auto first = std::make_shared<Event>(), rest = std::make_shared<Event>();
  const auto a = holding('a', first), b = holding('b', rest), c = holding('c', rest), d = holding('d', rest);
  bench.settle();
  b->cancel();  // while it waits
  bench.settle();
  EXPECT_TRUE(b->wasCancelled() && order == "a");
  first->set();
  c->cancel();  // just as it may be given the lock
  bench.settle();
  rest->set();
  bench.settle();
  EXPECT_TRUE(c->ended && d->value) << order;
  EXPECT_TRUE(bench.run<bool>(afterwards([&]() -> Task<> { const auto hold = co_await mutex.lock(); })));

  Runtime runtime;
  int held = 0;
  std::vector<std::future<bool>> many;
  for (int i = 0; i < 200; ++i) {
    many.push_back(co_spawn(runtime.concurrent(), afterwards([&]() -> Task<> {
                              const auto hold = co_await mutex.lock();
                              EXPECT_EQ(++held, 1);
                              co_await sleepFor(0ms);
                              --held;
                            }),
                            boost::asio::use_future));
  }
  for (auto& each : many) EXPECT_TRUE(each.get());
}

TEST(SharedTasks, RunOnceForAllWhoAwaitThemAndSurviveThose) {
  TaskHarness bench;
  const auto gate = std::make_shared<Event>();
  int runs = 0;
  const auto shared = SharedTask<int>::start(bench.executor(), [&runs, gate] {
    ++runs;
    return answerAfter(gate);
  });
  const auto failing = SharedTask<int>::start(bench.executor(), [gate] { return failAfter(gate); });
  const auto wait = [](auto task) { return [task] { return task->value(); }; };
  const auto first = bench.start<int>(wait(shared)), second = bench.start<int>(wait(shared));
  const auto unlucky = bench.start<int>(wait(failing));
  bench.settle();
  first->cancel();
  bench.settle();
  EXPECT_TRUE(first->wasCancelled());
  gate->set();
  bench.settle();
  EXPECT_EQ(second->value, 42);
  EXPECT_EQ(bench.run<int>(wait(shared)), 42) << "awaited after its end";
  EXPECT_EQ(unlucky->failureAs<Failure>()->description(), "no answer");
  EXPECT_THROW(bench.run<int>(wait(failing)), Failure);
  EXPECT_EQ(runs, 1);
}

TEST(Timeouts, PassOnTheEndOfTheWorkAtOnce) {
  TaskHarness bench;
  const auto within = [](std::function<Task<int>()> work) {
    return [work] { return withTimeout<int>(1h, "The work", work); };
  };
  const auto never = std::make_shared<Event>(), now = std::make_shared<Event>();
  now->set();
  EXPECT_EQ(bench.run<int>(within([now] { return answerAfter(now); })), 42);
  EXPECT_THROW(bench.run<int>(within([now] { return failAfter(now); })), Failure);
  const auto cancelled = bench.start<int>(within([never] { return answerAfter(never); }));
  bench.settle();
  cancelled->cancel();
  bench.settle();
  EXPECT_TRUE(cancelled->wasCancelled()) << "a cancellation is no time-out";
}

TEST(Timeouts, CancelWorkThatTakesTooLong) {
  Runtime runtime;
  std::atomic<bool> workEnded = false;
  const auto slow = [&workEnded]() -> Task<int> {
    const Observation mark([&workEnded] { workEnded = true; });
    co_return co_await answerAfter(std::make_shared<Event>());
  };
  EXPECT_THROW(await<int>(runtime.concurrent(), [&] { return withTimeout<int>(1ms, "The keyring", slow); }),
               TimeoutFailure);
  EXPECT_TRUE(workEnded) << "the work has gone before its time-out is told";
}

}  // namespace
}  // namespace vorlane::testing
