#include "StoreFixture.h"

#include "base/tasks/TaskGroup.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <list>
#include <optional>
#include <set>
#include <thread>

namespace vorlane {
namespace {

/// Another process of ours and a line to it. A body with threads of its own needs a
/// parent that has none when it forks.
class Process {
 public:
  /// The body is given the other process's side; what it throws becomes the status 1.
  explicit Process(const std::function<void(Process&)>& body) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    id_ = fork();
    line_ = ends[id_ == 0 ? 0 : 1];
    close(ends[id_ == 0 ? 1 : 0]);
    if (id_ != 0) return;
    const auto failure = failureOf([&] { body(*this); });
    if (failure != "nothing") fprintf(stderr, "child: %s\n", failure.c_str());
    _exit(failure == "nothing" ? 0 : 1);
  }
  ~Process() {
    if (id_ > 0) wait(SIGKILL);
    close(line_);
  }

  void put(int value) { EXPECT_EQ(write(line_, &value, sizeof value), ssize_t(sizeof value)); }
  /// Nothing when the other side has gone.
  std::optional<int> get() {
    int value = 0;
    if (read(line_, &value, sizeof value) != ssize_t(sizeof value)) return std::nullopt;
    return value;
  }
  /// Its status, 0 when it ended well; a signal hastens that.
  int wait(int signal = 0) {
    int status = -1;
    kill(id_, signal);
    waitpid(std::exchange(id_, -1), &status, 0);
    return status;
  }

 private:
  pid_t id_ = -1;
  int line_ = -1;
};

/// The work of a write that adds one row.
auto insertion(int number, std::string app = "ledgerly") {
  return [number, app = std::move(app)](Database& db) {
    db.execute("INSERT INTO recents (user_id, app, entity_id, opened_at) VALUES ('u', ?, ?, ?)", app,
               std::to_string(number), now());
  };
}

std::int64_t recents(const AgentStore& store) {
  return store.dbWriter().read([](Database& db) { return db.fetchCount("SELECT COUNT(*) FROM recents"); });
}

TEST(StoreFaults, SeveralProcessesOpenAFreshFileAtOnce) {
  for (int round = 0; round < 5; ++round) {
    const TemporaryFolder folder;
    int number = 0;
    const auto insert = [&](Process& parent) {
      parent.get();
      AgentStore(folder.path).dbWriter().write(insertion(number));
    };
    std::list<Process> processes;
    for (; number < 4; ++number) processes.emplace_back(insert);
    for (auto& process : processes) process.put(0);  // all go at once
    for (auto& process : processes) EXPECT_EQ(process.wait(), 0);
    OtherProgram file(folder.database());
    EXPECT_EQ(file.run("SELECT COUNT(*) FROM recents"), "4");
    EXPECT_EQ(file.run("SELECT COUNT(*) FROM grdb_migrations; PRAGMA integrity_check"), "9 ok");
  }
}

TEST(StoreFaults, NoAcknowledgedWriteIsLostWhenTheProcessIsKilledInAStorm) {
  const TemporaryFolder folder;
  std::set<int> acknowledged;
  for (int round = 0; round < 50; ++round) {
    Process writer([&](Process& parent) {
      const AgentStore store(folder.path);
      const auto writeOn = [&](int number) {
        for (;; ++number) {
          store.dbWriter().write(insertion(number));
          parent.put(number);
        }
      };
      std::vector<std::jthread> threads;
      for (int t = 0; t < 3; ++t) threads.emplace_back(writeOn, round * 1'000'000 + t * 300'000);
    });
    for (int i = 0; i < 5 + round * 3; ++i) acknowledged.insert(writer.get().value());
    writer.wait(SIGKILL);
    while (const auto number = writer.get()) acknowledged.insert(*number);
  }
  AgentStore(folder.path).dbWriter().read([&](Database& db) {
    for (const auto& id : db.fetchAll<std::string>("SELECT entity_id FROM recents"))
      acknowledged.erase(std::stoi(id));
    EXPECT_EQ(db.fetchOne<std::string>("PRAGMA integrity_check"), "ok");
  });
  EXPECT_THAT(acknowledged, ::testing::IsEmpty());
}

/// Another process holds the write lock until it is told to let go.
class LockedStore : public StoreTest {
 protected:
  void SetUp() override {
    open();
    holder.emplace([this](Process& parent) {
      OtherProgram other(folder.database());
      other.run("BEGIN IMMEDIATE; DELETE FROM recents");
      parent.put(0);
      parent.get();
      other.run("COMMIT");
    });
    ASSERT_TRUE(holder->get());
  }
  void unlock() {
    holder->put(0);
    EXPECT_EQ(holder->wait(), 0);
  }
  std::vector<std::future<void>> startTwentyWrites(const AgentStore& store) {
    std::vector<std::future<void>> writes;
    for (int i = 0; i < 20; ++i) writes.push_back(start(store.dbWriter().writeAsync(insertion(i))));
    return writes;
  }

  std::optional<Process> holder;
};

TEST_F(LockedStore, WritersWaitWithoutHoldingThreadsWhileReadersGoOn) {
  const auto store = open();  // which needs no write lock either
  auto writes = startTwentyWrites(*store);
  const auto read = boost::asio::use_future([&] { return recents(*store); });
  std::vector<std::future<std::int64_t>> reads;
  for (int i = 0; i < 50; ++i) reads.push_back(boost::asio::post(runtime.concurrent(), read));
  for (auto& counted : reads) EXPECT_EQ(counted.get(), 0);
  for (auto& write : writes) EXPECT_NE(write.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  unlock();
  for (auto& write : writes) write.get();
  EXPECT_EQ(recents(*store), 20);
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
  unlock();
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
  EXPECT_EQ(recents(store), written);
  EXPECT_NE(failureOfWrite(1000), "nothing");  // still full, still alive
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(failureOfWrite(2000), "nothing");
  EXPECT_EQ(recents(store), written + 1);
  EXPECT_EQ(OtherProgram(folder.database()).run("PRAGMA integrity_check"), "ok");
}

TEST(StoreFaults, AFolderOrFileThatMayNotBeWrittenIsNamed) {
  const TemporaryFolder fresh, existing;
  std::make_unique<AgentStore>(existing.path).reset();
  chmod(fresh.path.c_str(), 0555);
  chmod(existing.path.c_str(), 0777);
  chmod(existing.database().c_str(), 0444);
  for (const auto* folder : {&fresh, &existing}) {
    Process other([&](Process&) {
      if (getuid() == 0 && setuid(65534) != 0) throw Failure("cannot become nobody");
      const auto failure = failureOf([&] { AgentStore store(folder->path); });
      if (!failure.starts_with("cannot open " + folder->database())) throw Failure(failure);
    });
    EXPECT_EQ(other.wait(), 0) << folder->path;
  }
}

}  // namespace
}  // namespace vorlane
