// The stdio launcher against the socket behind it: small requests, 64 in flight, by
// a stand-in that answers each at once, or after as long as an agent would work that
// does 100 000 calls/s. Then the launcher's own CPU time for a call, what it keeps
// resident, and its start to the first byte forwarded.
#include "base/FileDescriptor.h"
#include "bench/LineTraffic.h"
#include "bench/Measure.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

namespace vorlane {
namespace {

namespace fs = std::filesystem;
using bench::Pipe, bench::readLines, bench::residentMegabytes, bench::writeAll;

constexpr int inFlight = 64;

sockaddr_un address(const fs::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.native().copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

/// Answers each line of each connection, each with a write of its own as the agent
/// does, after so much work. A process of its own.
class StandIn {
 public:
  StandIn(const fs::path& socket, std::chrono::nanoseconds work)
      : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    fs::remove(socket);
    const auto where = address(socket);
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) std::abort();
    ::listen(listener_.get(), 16);
    process_ = ::fork();
    if (process_ == 0) serve(work);
  }
  ~StandIn() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }

 private:
  [[noreturn]] void serve(std::chrono::nanoseconds work) const {
    for (;;) {
      const int client = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
      std::thread([client, work] {
        std::string buffer;
        const auto answer = [&](std::string_view line) {
          constexpr std::string_view name = R"("id":)";
          const auto id = line.substr(line.find(name) + name.size());
          const auto ready = std::chrono::steady_clock::now() + work;
          const auto text = fmt::format(
              R"({{"id":{},"jsonrpc":"2.0","result":{{"content":[{{"text":"{{}}","type":"text"}}]}}}})"
              "\n",
              id.substr(0, id.find(',')));
          while (std::chrono::steady_clock::now() < ready) {
          }
          writeAll(client, text);
        };
        while (readLines(client, buffer, answer)) {
        }
        ::close(client);
      }).detach();
    }
  }

  FileDescriptor listener_;
  pid_t process_ = -1;
};

/// The launcher, with a HOME in which the stand-in is found.
class Launcher {
 public:
  explicit Launcher(const fs::path& home) {
    process_ = ::fork();
    if (process_ == 0) {
      ::dup2(in.read.get(), 0);
      ::dup2(out.write.get(), 1);
      const auto path = fs::read_symlink("/proc/self/exe").parent_path() / "vorlane-mcp-launcher";
      const auto variable = "HOME=" + home.native();
      const char* words[] = {path.c_str(), nullptr};
      const char* variables[] = {variable.c_str(), "PATH=/usr/bin:/bin", nullptr};
      ::execve(path.c_str(), const_cast<char**>(words), const_cast<char**>(variables));
      ::_exit(127);
    }
    in.read.reset();
    out.write.reset();
  }
  ~Launcher() {
    in.write.reset();
    ::waitpid(process_, nullptr, 0);
  }
  pid_t process() const { return process_; }

  Pipe in, out;

 private:
  pid_t process_ = -1;
};

void call(int number, std::string& out) {
  out += fmt::format(
      R"({{"jsonrpc":"2.0","id":{},"method":"tools/call","params":{{"name":"sceneward_list_projects","arguments":{{}}}}}})"
      "\n",
      number);
}

/// `count` calls, 64 in flight; a new one for each answer.
void exchange(int to, int from, int count) {
  std::string requests, buffer;
  int sent = 0, answered = 0;
  while (sent < std::min(count, inFlight)) call(++sent, requests);
  while (answered < count) {
    writeAll(to, std::exchange(requests, {}));
    const bool open = readLines(from, buffer, [&](std::string_view) {
      ++answered;
      if (sent < count) call(++sent, requests);
    });
    if (!open) std::abort();
  }
}

double cpuSeconds(pid_t process) {
  std::ifstream in(fmt::format("/proc/{}/stat", process));
  std::string word;
  double ticks = 0;
  // User and system time are the fields 14 and 15.
  for (int field = 1; in >> word && field <= 15; ++field) {
    if (field >= 14) ticks += std::stod(word);
  }
  return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

void compare(const fs::path& home, const fs::path& socket, int count, std::chrono::nanoseconds work) {
  constexpr int rounds = 7;
  const StandIn agent(socket, work);
  FileDescriptor direct(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto where = address(socket);
  if (::connect(direct.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) std::abort();
  const Launcher launcher(home);
  const auto pair = bench::medians(
      rounds, [&] { exchange(launcher.in.write.get(), launcher.out.read.get(), count); },
      [&] { exchange(direct.get(), direct.get(), count); });
  fmt::print(
      "{} in flight, {} ns of work each: {:.0f} calls/s through the launcher, {:.0f} over the socket; "
      "ratio {:.2f}{}\n",
      inFlight, work.count(), count / pair.ours, count / pair.floor, pair.floor / pair.ours,
      work.count() > 0 ? " (0.6 at least)" : "");
  fmt::print("  the launcher's CPU time: {:.2f} us a call; resident after these: {:.1f} MB (under 4)\n",
             cpuSeconds(launcher.process()) / rounds / count * 1e6, residentMegabytes(launcher.process()));
}

/// From the start to the first byte at the agent, seen from the agent's side.
double firstByteOnce(const fs::path& home, const fs::path& socket) {
  fs::remove(socket);
  FileDescriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto where = address(socket);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) != 0) std::abort();
  ::listen(listener.get(), 1);
  std::string request;
  call(1, request);
  const auto start = std::chrono::steady_clock::now();
  Launcher launcher(home);
  writeAll(launcher.in.write.get(), request);
  FileDescriptor agent(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  char byte = 0;
  if (::read(agent.get(), &byte, 1) != 1) std::abort();
  const double seconds = bench::Seconds(std::chrono::steady_clock::now() - start).count();
  // Nobody waits for the answer.
  ::kill(launcher.process(), SIGTERM);
  return seconds;
}

int run(int count) {
  char name[] = "/tmp/vorlane-bench-XXXXXX";
  if (::mkdtemp(name) == nullptr) return 1;
  const fs::path home = name, container = home / ".local/share/group.com.vorlane.shared";
  const auto socket = container / "mcp.sock";
  fs::create_directories(container);
  for (const auto work : {std::chrono::nanoseconds(0), std::chrono::nanoseconds(10'000)}) {
    compare(home, socket, count, work);
  }
  std::vector<double> starts;
  for (int i = 0; i < 50; ++i) starts.push_back(firstByteOnce(home, socket));
  fmt::print("start to the first byte forwarded: median {:.2f} ms, worst of {} {:.2f} ms (under 10)\n",
             bench::percentile(starts, 0.5) * 1e3, starts.size(), bench::percentile(starts, 1) * 1e3);
  fs::remove_all(home);
  return 0;
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::run(count > 1 ? std::atoi(words[1]) : 100'000);
}
