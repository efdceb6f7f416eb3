// Calls of ledgerly_list_sheets with ten sheets, 64 in flight: the dispatch in this process,
// over the socket, through the launcher, and a server made with the official TypeScript
// SDK with one tool that lists ten rows of SQLite, over its standard streams. The clients
// are processes of their own, one thread each. Then one client that waits for each answer.
// Needs node and npm: the SDK comes from the lock file of tests/clients.
#include "bench/LineTraffic.h"
#include "bench/LocalAgent.h"
#include "bench/Measure.h"
#include "mcp/MessageExchange.h"

#include <fmt/format.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <latch>

namespace {

using namespace vorlane;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr std::size_t inFlight = 64;
constexpr int rounds = 5;

std::string call(std::string_view tool, int id) {
  return fmt::format(
      R"({{"jsonrpc":"2.0","id":{},"method":"tools/call","params":{{"name":"{}","arguments":{{}}}}}})"
      "\n",
      id, tool);
}

struct Outcome {
  std::vector<double> seconds, rates;
  void add(double time, int count) { rates.push_back(count / time); }
  double rate() { return bench::percentile(rates, 0.5); }
};

/// The number behind "id": in an answer, whose place among the members is the server's choice.
std::size_t idOf(std::string_view line) {
  // The outermost comes first in the agent's answers and last in the SDK's.
  const auto at = line.starts_with("{\"id\":") ? std::size_t{0} : line.rfind("\"id\":");
  return static_cast<std::size_t>(std::atoi(line.data() + line.find(':', at) + 1));
}

/// `count` calls with so many in flight, a new one for each answer. Gives the time of each.
void exchange(int to, int from, std::string_view tool, int count, std::size_t atOnce,
              std::vector<double>& times) {
  std::array<Steady::time_point, inFlight> started;
  std::string requests, buffer;
  int sent = 0, answered = 0;
  const auto send = [&](std::size_t slot) {
    requests += call(tool, static_cast<int>(slot));
    started[slot] = Steady::now();
    ++sent;
  };
  for (std::size_t slot = 0; slot < atOnce; ++slot) send(slot);
  while (answered < count) {
    bench::writeAll(to, std::exchange(requests, {}));
    const bool open = bench::readLines(from, buffer, [&](std::string_view line) {
      const auto slot = idOf(line);
      times.push_back(bench::Seconds(Steady::now() - started[slot]).count());
      if (line.find("\"error\":") != std::string_view::npos) std::abort();
      ++answered;
      if (sent < count) send(slot);
    });
    if (!open) std::abort();
  }
}

/// The same in a process of its own, which sends what it measured.
void measure(int to, int from, std::string_view tool, int count, Outcome& outcome,
             std::size_t atOnce = inFlight) {
  bench::Pipe pipe;
  const pid_t child = ::fork();
  if (child == 0) {
    std::vector<double> times;
    const double whole = bench::secondsFor([&] { exchange(to, from, tool, count, atOnce, times); });
    times.push_back(whole);
    bench::writeAll(pipe.write.get(),
                    {reinterpret_cast<const char*>(times.data()), times.size() * sizeof(double)});
    ::_exit(0);
  }
  pipe.write.reset();
  std::string bytes;
  char piece[65536];
  for (ssize_t got = 0; (got = ::read(pipe.read.get(), piece, sizeof piece)) > 0;)
    bytes.append(piece, static_cast<std::size_t>(got));
  ::waitpid(child, nullptr, 0);
  if (bytes.size() < sizeof(double)) std::abort();
  std::vector<double> times(bytes.size() / sizeof(double));
  bytes.copy(reinterpret_cast<char*>(times.data()), bytes.size());
  outcome.add(times.back(), count);
  times.pop_back();
  outcome.seconds.insert(outcome.seconds.end(), times.begin(), times.end());
}

/// The same calls in this process: bytes in, bytes out, each in a task as the transports start it.
double inProcess(bench::LocalAgent& agent, int count) {
  std::atomic<int> left = count;
  std::latch done(static_cast<std::ptrdiff_t>(inFlight));
  const auto message = call("ledgerly_list_sheets", 1);
  return bench::secondsFor([&] {
    for (std::size_t i = 0; i < inFlight; ++i) {
      boost::asio::co_spawn(
          agent.concurrent(),
          [&]() -> Task<> {
            while (left-- > 0) co_await exchangeMessage(agent.server(), message);
            done.count_down();
          },
          boost::asio::detached);
    }
    done.wait();
  });
}

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
  return socket;
}

/// A program with our ends of its standard streams.
class Program {
 public:
  explicit Program(const std::vector<std::string>& words) : started(Steady::now()) {
    std::vector<char*> arguments;
    for (const auto& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    process = ::fork();
    if (process == 0) {
      ::dup2(in.read.get(), 0);
      ::dup2(out.write.get(), 1);
      ::execvp(arguments[0], arguments.data());
      ::_exit(127);
    }
    in.read.reset();
    out.write.reset();
  }
  ~Program() {
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
  }
  /// Milliseconds from its start to its first answer.
  double shakeHands() {
    bench::writeAll(
        in.write.get(),
        R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2024-11-05",)"
        R"("capabilities":{},"clientInfo":{"name":"bench","version":"1"}}})"
        "\n"
        R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
        "\n");
    std::string buffer;
    bool answered = false;
    while (!answered &&
           bench::readLines(out.read.get(), buffer, [&](std::string_view) { answered = true; })) {
    }
    return bench::Seconds(Steady::now() - started).count() * 1000;
  }

  const Steady::time_point started;
  bench::Pipe in, out;
  pid_t process = -1;
};

void report(const char* name, Outcome& outcome) {
  fmt::print("{:<22} {:>8.0f} calls/s", name, outcome.rate());
  if (!outcome.seconds.empty()) {
    fmt::print("   p50 {:>6.0f} us   p99 {:>6.0f} us", bench::percentile(outcome.seconds, 0.5) * 1e6,
               bench::percentile(outcome.seconds, 0.99) * 1e6);
  }
  fmt::print("\n");
}

int run(int count) {
  if (std::system(INSTALL) != 0) {
    fmt::print(stderr, "bench_socket needs node and the packages that {} installs\n", INSTALL);
    return 2;
  }
  bench::LocalAgent agent;
  agent.makeSheets(10);
  const auto programs = fs::read_symlink("/proc/self/exe").parent_path();
  const auto socket = connectTo(agent.socketPath());
  Program launcher({programs / "vorlane-mcp-launcher", "--container", agent.folder()});
  const double launcherStart = launcher.shakeHands();
  Program peer({"node", PEER});
  const double peerStart = peer.shakeHands();

  Outcome direct, overSocket, throughLauncher, ofPeer, oneByOne, oneByOnePeer;
  for (int round = 0; round < rounds; ++round) {
    direct.add(inProcess(agent, count), count);
    measure(socket.get(), socket.get(), "ledgerly_list_sheets", count, overSocket);
    measure(launcher.in.write.get(), launcher.out.read.get(), "ledgerly_list_sheets", count, throughLauncher);
    measure(peer.in.write.get(), peer.out.read.get(), "list_sheets", count / 4, ofPeer);
    measure(socket.get(), socket.get(), "ledgerly_list_sheets", count / 4, oneByOne, 1);
    measure(peer.in.write.get(), peer.out.read.get(), "list_sheets", count / 4, oneByOnePeer, 1);
  }
  report("in process", direct);
  report("socket", overSocket);
  report("launcher", throughLauncher);
  report("TypeScript SDK", ofPeer);
  report("socket, one by one", oneByOne);
  report("SDK, one by one", oneByOnePeer);
  const double socketShare = overSocket.rate() / direct.rate();
  const double launcherShare = throughLauncher.rate() / overSocket.rate();
  const double times = throughLauncher.rate() / ofPeer.rate();
  fmt::print("socket against in process {:.2f} (at least 0.60)\n", socketShare);
  fmt::print("launcher against socket   {:.2f} (at least 0.60)\n", launcherShare);
  fmt::print("launcher against the SDK  {:.2f} times (at least 5); the socket {:.2f} times\n", times,
             overSocket.rate() / ofPeer.rate());
  const double share =
      bench::percentile(oneByOne.seconds, 0.5) / bench::percentile(oneByOnePeer.seconds, 0.5);
  fmt::print("one by one, median time against the SDK's {:.2f} (at most 0.50)\n", share);
  fmt::print("first answer: launcher {:.1f} ms, SDK {:.0f} ms; resident: launcher {:.1f} MB, SDK {:.0f} MB\n",
             launcherStart, peerStart, bench::residentMegabytes(launcher.process),
             bench::residentMegabytes(peer.process));
  return socketShare >= 0.6 && launcherShare >= 0.6 && times >= 5 && share <= 0.5 ? 0 : 1;
}

}  // namespace

int main(int count, char** words) {
  return run(count > 1 ? std::atoi(words[1]) : 40'000);
}
