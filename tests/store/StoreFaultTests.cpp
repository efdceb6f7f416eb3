#include "StoreFixture.h"

#include "base/ShellLog.h"
#include "base/tasks/TaskGroup.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <set>
#include <vector>

// That no acknowledged write is lost when the process is killed is tested with the whole agent.
namespace vorlane {
namespace {

/// The work of a write that adds one row.
auto insertion(int number, std::string app = "ledgerly") {
  return [number, app = std::move(app)](Database& db) {
    db.execute("INSERT INTO recents (user_id, app, entity_id, opened_at) VALUES ('u', ?, ?, ?)", app,
               std::to_string(number), now());
  };
}

// Processes that have threads of their own need a parent that has none when it forks.
TEST(StoreFaults, SeveralProcessesOpenAFreshFileAtOnce) {
  for (int round = 0; round < 5; ++round) {
    const TemporaryFolder folder;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> processes;
    for (int number = 0; number < 4; ++number) {
      processes.push_back(fork());
      if (processes.back() != 0) continue;
      close(start[1]);
      char nothing = 0;
      EXPECT_EQ(read(start[0], &nothing, 1), 0);  // ends for all at once
      EXPECT_EQ(failureOf([&] { AgentStore(folder.path).dbWriter().write(insertion(number)); }), "nothing");
      _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    close(start[0]);
    close(start[1]);
    for (const pid_t process : processes) {
      int status = -1;
      waitpid(process, &status, 0);
      EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(OtherProgram(folder.database())
                  .run("SELECT COUNT(*) FROM recents; SELECT COUNT(*) FROM grdb_migrations;"
                       "PRAGMA integrity_check"),
              "4 9 ok");
  }
}

/// Another program holds the write lock until it is told to let go.
struct LockedStore : StoreTest {
  void SetUp() override {
    open();
    ASSERT_EQ(holder.run("BEGIN IMMEDIATE; DELETE FROM recents"), "");
  }
  std::vector<std::future<void>> startTwentyWrites(const AgentStore& store) {
    std::vector<std::future<void>> writes;
    for (int i = 0; i < 20; ++i) writes.push_back(start(store.dbWriter().writeAsync(insertion(i))));
    return writes;
  }
  OtherProgram holder{folder.database()};
};

TEST_F(LockedStore, WritersWaitWithoutHoldingThreadsWhileReadersGoOn) {
  const auto store = open();  // which needs no write lock
  auto writes = startTwentyWrites(*store);
  const auto count = [&] {
    return store->dbWriter().read([](Database& db) { return db.fetchCount("SELECT COUNT(*) FROM recents"); });
  };
  std::vector<std::future<std::int64_t>> reads;
  for (int i = 0; i < 50; ++i)
    reads.push_back(boost::asio::post(runtime.concurrent(), boost::asio::use_future(count)));
  for (auto& counted : reads) EXPECT_EQ(counted.get(), 0);
  for (auto& write : writes) EXPECT_NE(write.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  holder.run("COMMIT");
  for (auto& write : writes) write.get();
  EXPECT_EQ(count(), 20);
}

TEST_F(LockedStore, WritersThatQueueUpFailTogetherWhenTheirTimeIsUp) {
  const AgentStore store(folder.path, {.busyTimeout = std::chrono::milliseconds(200)});
  const auto begun = std::chrono::steady_clock::now();
  for (auto& write : startTwentyWrites(store))
    EXPECT_THAT(failureOf([&] { write.get(); }), HasSubstr("database is locked: another program"));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(3));  // not twenty times 200 ms
}

TEST_F(LockedStore, AWriteWhoseAwaiterIsCancelledIsStillMadeAndSignalled) {
  const auto store = open();
  const auto queries = queriesOn(store);
  TaskGroup group;
  std::promise<void> begun;
  group.spawn(runtime.concurrent(), "edit", [&]() -> Task<> {
    begun.set_value();
    co_await queries.save({"s", "o", "T", "{}", present, present});
  });
  begun.get_future().wait();
  // The cancellation is emitted on the task's strand, so only once it waits for the write.
  group.cancel();
  await(group.join());
  EXPECT_EQ(newSignals(), 0);
  holder.run("COMMIT");
  store->dbWriter().write(insertion(1));  // behind it in the queue
  EXPECT_TRUE(queries.fetch("s"));
  EXPECT_EQ(newSignals(), 1);
}

TEST(StoreFaults, AFullDiskFailsTheWriteAndNothingElse) {
  const TemporaryFolder folder;
  const AgentStore store(folder.path);
  const auto failureOfWrite = [&](int number) {
    return failureOf([&] { store.dbWriter().write(insertion(number, std::string(100'000, 'x'))); });
  };
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{.rlim_cur = 1 << 20, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  int written = 0;
  while (written < 100 && failureOfWrite(written) == "nothing") ++written;
  EXPECT_LT(written, 100);
  EXPECT_NE(failureOfWrite(1000), "nothing");  // still full, still alive
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(failureOfWrite(2000), "nothing");
  EXPECT_EQ(OtherProgram(folder.database()).run("SELECT COUNT(*) FROM recents; PRAGMA integrity_check"),
            std::to_string(written + 1) + " ok");
}

// Whoever clears a folder or restores a backup does not ask whether the agent runs.
TEST(StoreFaults, NoWriteIsAcknowledgedThatTheFileAtThePathDoesNotHold) {
  // What is done to the files, the rows of before that are found afterwards, and what was set aside.
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"rm Vorlane.sqlite*", "-", ""},
      {"rm Vorlane.sqlite", "-", "-shm.orphaned -wal.orphaned"},
      {"mv backup Vorlane.sqlite", "1", "-shm.orphaned -wal.orphaned"},
      {"rm Vorlane.sqlite-*; mv backup Vorlane.sqlite", "1", ""},
      {"rm Vorlane.sqlite-wal", "1,2", ""},
      {"rm Vorlane.sqlite-shm", "1,2", ""},
  };
  for (const auto& [harm, rowsBefore, setAside] : cases) {
    SCOPED_TRACE(harm);
    const TemporaryFolder folder;
    const auto inFile = [&](const std::string& sql) { return OtherProgram(folder.database()).run(sql); };
    const AgentStore stores[] = {AgentStore(folder.path), AgentStore(folder.path)};
    const auto count = [](Database& db) { return db.fetchCount("SELECT COUNT(*) FROM recents"); };
    installShellLog(ShellLog(folder.path + "/log", "test"));
    stores[0].dbWriter().write(insertion(1));
    inFile("VACUUM INTO '" + folder.path + "/backup'");
    stores[0].dbWriter().write(insertion(2));
    EXPECT_EQ(stores[1].dbWriter().read(count), 2);
    ASSERT_EQ(std::system(("cd " + folder.path + "; " + harm).c_str()), 0);

    std::string expected = rowsBefore, failures;
    for (int number = 10; number < 30; ++number) {
      const auto failure = failureOf([&] { stores[number % 2].dbWriter().write(insertion(number)); });
      failure == "nothing" ? expected += "," + std::to_string(number) : failures += failure;
    }
    EXPECT_EQ(failures, folder.database() +
                            " or its log was removed or replaced while it was open. Nothing was read or "
                            "written; the next call finds what is there now.");
    EXPECT_EQ(inFile("SELECT group_concat(entity_id) FROM recents"),
              expected.starts_with("-,") ? expected.substr(2) : expected);
    EXPECT_EQ(inFile("PRAGMA integrity_check; SELECT COUNT(*) FROM grdb_migrations"), "ok 9");
    for (const auto& store : stores)
      EXPECT_EQ(std::to_string(store.dbWriter().read(count)), inFile("SELECT COUNT(*) FROM recents"));
    std::set<std::string> orphans;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path))
      if (entry.path().extension() == ".orphaned")
        orphans.insert(entry.path().filename().string().substr(14));
    EXPECT_EQ(fmt::format("{}", fmt::join(orphans, " ")), setAside);
    std::ifstream log(folder.path + "/log");
    EXPECT_EQ(std::count(std::istreambuf_iterator<char>(log), {}, '\n'), 1);
  }
}

/// Gives up what a superuser may do that the tests count on being refused.
bool becomeNobody() {
  return getuid() != 0 || setuid(65534) == 0;
}

TEST(StoreFaults, AWriteFailsAndTheStoreStillEndsWhereThereIsNoThreadToBeHad) {
  const TemporaryFolder folder;
  const auto openAndEnd = [&] {
    auto store = std::make_unique<AgentStore>(folder.path);
    const rlimit none{};
    if (!becomeNobody() || setrlimit(RLIMIT_NPROC, &none) != 0) _exit(1);
    std::cerr << failureOf([&] { store->dbWriter().write(insertion(1)); });
    store.reset();
    _exit(0);
  };
  EXPECT_EXIT(openAndEnd(), ::testing::ExitedWithCode(0), "Resource temporarily unavailable");
}

TEST(StoreFaults, WhatStandsWhereTheFileBelongsIsNamed) {
  const TemporaryFolder fresh, existing, taken;
  std::filesystem::create_directory(taken.database());
  EXPECT_EQ(failureOf([&] { AgentStore store(taken.path); }),
            "cannot open " + taken.database() + ": it is a folder");
  std::make_unique<AgentStore>(existing.path).reset();
  chmod(fresh.path.c_str(), 0555);
  chmod(existing.path.c_str(), 0777);
  chmod(existing.database().c_str(), 0444);
  for (const auto* folder : {&fresh, &existing}) {
    const auto openAsNobody = [&] {
      if (!becomeNobody()) _exit(1);
      std::cerr << failureOf([&] { AgentStore store(folder->path); });
      _exit(0);
    };
    EXPECT_EXIT(openAsNobody(), ::testing::ExitedWithCode(0), "^cannot open " + folder->database());
  }
}

}  // namespace
}  // namespace vorlane
