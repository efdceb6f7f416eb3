// The real agent, somebody signed in beside the local cloud: from its start to the first
// answered request, and what it costs and what it asks of the cloud while nobody asks.
// `bench_start [SECONDS]` idles that long (60).
#include "bench/Measure.h"
#include "devcloud/RequestLog.h"
#include "tests/integration/Spine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

/// What the kernel counts for a process: context switches of all threads that
/// they made by themselves (each is one wake-up), and CPU time in seconds.
struct Usage {
  long wakeups = 0;
  double cpu = 0;
};

long field(const fs::path& file, std::string_view name) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(name)) return std::stol(line.substr(name.size() + 1));
  }
  return 0;
}

Usage usage(pid_t pid, std::map<std::string, long>* byThread = nullptr) {
  Usage total;
  const fs::path process = fmt::format("/proc/{}", pid);
  for (const auto& thread : fs::directory_iterator(process / "task")) {
    const auto count = field(thread.path() / "status", "voluntary_ctxt_switches:");
    total.wakeups += count;
    if (byThread != nullptr) {
      auto name = test::contents(thread.path() / "comm");
      name.pop_back();
      (*byThread)[name + " " + thread.path().filename().string()] = count;
    }
  }
  std::istringstream stat(test::contents(process / "stat"));
  std::string word;
  for (int i = 1; i <= 15; ++i) {
    stat >> word;
    if (i == 14 || i == 15) total.cpu += std::stod(word) / static_cast<double>(sysconf(_SC_CLK_TCK));
  }
  return total;
}

/// Everything of the process: from fork to the end of the first answer.
double startOnce(test::AgentProcess& agent, const std::string& token) {
  const auto start = std::chrono::steady_clock::now();
  // Asking in a loop rather than reading the log: the answer is what counts.
  agent.launch({"--port", "17899"});
  constexpr std::string_view list = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";
  while (test::post(17899, token, list).status != 200)
    std::this_thread::sleep_for(std::chrono::microseconds(500));
  const double seconds = bench::Seconds(std::chrono::steady_clock::now() - start).count();
  agent.stop(SIGTERM);
  return seconds;
}

int run(int idleSeconds) {
  test::Spine spine;
  spine.person("auth0|bench", true);
  spine.signIn("auth0|bench");
  test::AgentProcess& agent = spine.agent;
  agent.start();  // makes the database and learns of the access
  if (!spine.eventuallyAnswers(200)) return 1;
  agent.stop(SIGTERM);
  const auto token = spine.token;

  std::vector<double> starts;
  for (int i = 0; i < 15; ++i) starts.push_back(startOnce(agent, token));
  const double worst = *std::ranges::max_element(starts);
  fmt::print("start to first answered tools/list: median {:.1f} ms, worst of {} {:.1f} ms (under 60)\n",
             bench::percentile(starts, 0.5) * 1e3, starts.size(), worst * 1e3);

  agent.start();
  test::call(agent.port(), token, "ledgerly_list_sheets");
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const fs::path process = fmt::format("/proc/{}", agent.pid());
  fmt::print(
      "resident after one call: {:.1f} MB; proportional share {:.1f} MB; private {:.1f} MB (under 20)\n",
      field(process / "status", "VmRSS:") / 1024.0, field(process / "smaps_rollup", "Pss:") / 1024.0,
      (field(process / "smaps_rollup", "Private_Dirty:") +
       field(process / "smaps_rollup", "Private_Clean:")) /
          1024.0);
  std::map<std::string, long> before, after;
  spine.cloud.call(&devcloud::RequestLog::clear);
  const auto first = usage(agent.pid(), &before);
  std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
  const auto last = usage(agent.pid(), &after);
  const double cpu = last.cpu - first.cpu;
  fmt::print("{} idle seconds: {:.2f} s of CPU time, {:.3f} % (under 0.1), {} wake-ups\n", idleSeconds, cpu,
             cpu / idleSeconds * 100, last.wakeups - first.wakeups);
  std::map<std::string, int> requests;
  for (const auto& request : spine.cloud.call(&devcloud::RequestLog::find, {}))
    ++requests[request.method + " " + request.path];
  fmt::print("  requests: {}\n", requests.empty() ? "none" : "");
  for (const auto& [request, count] : requests) fmt::print("    {} {}\n", count, request);
  for (const auto& [name, count] : after) {
    if (count != before[name]) fmt::print("  {}: {}\n", name, count - before[name]);
  }
  return 0;
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::run(count > 1 ? std::atoi(words[1]) : 60);
}
