// Whether some calls hold up the others: a fast call beside 500 that wait for the
// cloud, and reads while another process keeps the database locked and 20 writers wait.
#include "base/tasks/Timing.h"
#include "bench/LocalAgent.h"
#include "bench/Measure.h"
#include "devcloud/DevCloud.h"
#include "platform/Platform.h"
#include "tests/integration/AgentProcess.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

namespace vorlane {
namespace {

/// The times of one call after the other, for as long as `go` says so.
std::vector<double> timesOf(const std::function<void()>& call, const std::function<bool()>& go) {
  std::vector<double> samples;
  while (go()) samples.push_back(bench::secondsFor(call));
  return samples;
}

std::function<bool()> forSeconds(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  return [end] { return std::chrono::steady_clock::now() < end; };
}

void print(const char* what, std::vector<double> alone, std::vector<double> beside, double most) {
  const double a = bench::percentile(alone, 0.99), b = bench::percentile(beside, 0.99);
  fmt::print("{}: p99 alone {:.2f} ms ({} calls), beside {:.2f} ms ({} calls), ratio {:.2f} (at most {})\n",
             what, a * 1e3, alone.size(), b * 1e3, beside.size(), b / a, most);
  std::fflush(stdout);
}

/// Holds the write lock of the database in a process of its own for three seconds.
pid_t holdLock(const std::filesystem::path& folder, int& ready) {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  const pid_t pid = ::fork();
  if (pid == 0) {
    sqlite3* db = nullptr;
    sqlite3_open((folder / "Vorlane.sqlite").c_str(), &db);
    sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    [[maybe_unused]] const auto told = ::write(ends[1], "x", 1);
    ::usleep(3'000'000);
    sqlite3_close(db);
    ::_exit(0);
  }
  ::close(ends[1]);
  ready = ends[0];
  return pid;
}

void besideSlowCalls(const std::filesystem::path& folder) {
  devcloud::DevCloudOptions options;
  options.directory = folder;
  devcloud::DevCloud cloud(std::move(options));
  cloud.start();
  const auto session = makeURLSession(std::nullopt);
  std::atomic<int> waiting{0};
  ToolDefinition slow{.name = "bench_slow",
                      .description = "Waits five seconds on the cloud.",
                      .inputSchema = {{"type", "object"}}};
  slow.handler = [&, url = cloud.plainBase() + "/__control/sleep?ms=5000"](JSONMap,
                                                                           Identity) -> Task<JSONMap> {
    URLRequest request;
    request.url = url;
    ++waiting;
    const auto response = co_await session->send(request);
    co_return JSONMap{{"status", response.status}};
  };
  bench::LocalAgent agent({slow});
  agent.makeSheets(10);
  const auto fast = [&] { test::call(agent.port(), agent.token(), "ledgerly_list_sheets"); };
  timesOf(fast, forSeconds(0.5));
  auto alone = timesOf(fast, forSeconds(3));

  std::atomic<int> answered{0};
  std::vector<std::thread> callers;
  for (int i = 0; i < 500; ++i) {
    callers.emplace_back([&] {
      if (test::toolResult(test::call(agent.port(), agent.token(), "bench_slow")).at("status") == 200)
        ++answered;
    });
  }
  while (waiting < 500) std::this_thread::yield();
  auto beside = timesOf(fast, [&, limit = forSeconds(3)] { return answered == 0 && limit(); });
  for (auto& caller : callers) caller.join();
  print("a fast call beside 500 slow ones", std::move(alone), std::move(beside), 2);
  fmt::print("  slow calls answered: {} of 500\n", answered.load());
}

void besideLockedDatabase() {
  bench::LocalAgent agent;
  agent.makeSheets(10);
  const auto read = [&] {
    test::call(agent.port(), agent.token(), "ledgerly_get_sheet", {{"sheetId", "sheet-1"}});
  };
  timesOf(read, forSeconds(0.5));
  auto alone = timesOf(read, forSeconds(2.5));

  int ready = -1;
  const pid_t holder = holdLock(agent.folder(), ready);
  char byte = 0;
  [[maybe_unused]] const auto got = ::read(ready, &byte, 1);
  std::atomic<int> written{0};
  std::vector<std::thread> writers;
  for (int i = 0; i < 20; ++i) {
    writers.emplace_back([&, i] {
      test::toolResult(
          test::call(agent.port(), agent.token(), "ledgerly_add_item",
                     {{"sheetId", fmt::format("sheet-{}", i % 10)}, {"categoryId", "c"}, {"name", "late"}}));
      ++written;
    });
  }
  auto beside = timesOf(read, [&, limit = forSeconds(2.5)] { return written == 0 && limit(); });
  for (auto& writer : writers) writer.join();
  ::waitpid(holder, nullptr, 0);
  print("reads while the database is locked and 20 writers wait", std::move(alone), std::move(beside), 3);
  fmt::print("  writes made after the lock: {} of 20\n", written.load());
}

}  // namespace
}  // namespace vorlane

int main() {
  const vorlane::test::TemporaryFolder folder;
  vorlane::besideLockedDatabase();
  vorlane::besideSlowCalls(folder.path());
  return 0;
}
