#pragma once

#include "base/FileDescriptor.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorlane::testing {

inline bool ready(int fd, short events, int milliseconds) {
  pollfd asked{fd, events, 0};
  return ::poll(&asked, 1, milliseconds) > 0;
}

/// One end of a stream, of which nothing is waited for longer than 20 seconds.
class End {
 public:
  End() = default;
  explicit End(int fd) : fd_(fd) {}

  int get() const { return fd_.get(); }
  void close() { fd_.reset(); }
  void write(std::string_view bytes) const {
    while (!bytes.empty() && ready(get(), POLLOUT, 20'000)) {
      const auto count = ::write(get(), bytes.data(), bytes.size());
      if (count <= 0) break;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    EXPECT_EQ(bytes.size(), 0) << "left to write";
  }
  /// The next `size` bytes, or all up to the end of the stream.
  std::string read(std::size_t size = std::string::npos) {
    while (buffer_.size() < size && more()) {
    }
    const auto bytes = buffer_.substr(0, size);
    buffer_.erase(0, bytes.size());
    return bytes;
  }
  /// The next line with its newline; less at the end of the stream.
  std::string line() {
    std::size_t seen = 0, newline = 0;
    while ((newline = buffer_.find('\n', seen)) == std::string::npos) {
      seen = buffer_.size();
      if (!more()) break;
    }
    return read(newline == std::string::npos ? newline : newline + 1);
  }
  /// Writes `piece` for as long as the other end takes it; how often it did. The
  /// end must be non-blocking and take whole pieces.
  std::size_t stuff(std::string_view piece) const {
    std::size_t count = 0;
    while (count < 100'000 && ready(get(), POLLOUT, 300)) {
      const auto written = ::write(get(), piece.data(), piece.size());
      if (written < 0 && errno == EAGAIN) continue;
      EXPECT_EQ(written, std::ssize(piece));
      ++count;
    }
    return count;
  }

 private:
  bool more() {
    char piece[65536];
    const bool some = ready(get(), POLLIN, 20'000);
    EXPECT_TRUE(some) << "nothing came; so far: " << buffer_.substr(0, 200);
    const auto count = some ? ::read(get(), piece, sizeof piece) : 0;
    if (count > 0) buffer_.append(piece, static_cast<std::size_t>(count));
    return count > 0;
  }

  FileDescriptor fd_;
  std::string buffer_;
};

/// Stands in for the agent: listens at a socket of a container.
class StandIn {
 public:
  explicit StandIn(const std::string& container, const std::string& name = "/mcp.sock")
      : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    std::filesystem::create_directories(container);
    // By way of the folder: paths may be longer than an address.
    const FileDescriptor folder(::open(container.c_str(), O_PATH | O_CLOEXEC));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ("/proc/self/fd/" + std::to_string(folder.get()) + name).copy(address.sun_path, 100);
    std::filesystem::remove(container + name);
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_.get(), 5), 0);
  }
  End accept() const {
    EXPECT_TRUE(ready(listener_.get(), POLLIN, 20'000)) << "nobody connects";
    return End(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  bool asked() const { return ready(listener_.get(), POLLIN, 0); }

 private:
  FileDescriptor listener_;
};

/// The real program, started as assistants start it.
class Launcher {
 public:
  enum class Streams { pipes, sockets };
  using Variables = std::map<std::string, std::string>;

  explicit Launcher(const Variables& variables, std::vector<std::string> words = {},
                    Streams streams = Streams::pipes) {
    const bool sockets = streams == Streams::sockets;
    int in[2], out[2], error[2];
    const auto pair = [&](int* ends) {
      EXPECT_EQ(
          sockets ? ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) : ::pipe2(ends, O_CLOEXEC), 0);
    };
    pair(in), pair(out);
    EXPECT_EQ(::pipe2(error, O_CLOEXEC), 0);
    words.insert(words.begin(), std::string(VORLANE_BIN) + "/vorlane-mcp-launcher");
    std::vector<std::string> texts{"PATH=/usr/bin:/bin"};
    for (const auto& [name, value] : variables) texts.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& word : words) argv.push_back(word.data());
    for (auto& text : texts) envp.push_back(text.data());
    argv.push_back(nullptr), envp.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      sigset_t all;
      sigfillset(&all);
      ::sigprocmask(SIG_BLOCK, &all, nullptr);  // as some clients leave it
      ::dup2(in[0], 0), ::dup2(out[1], 1), ::dup2(error[1], 2);
      ::execve(argv[0], argv.data(), envp.data());
      ::_exit(127);
    }
    ::close(in[0]), ::close(error[1]);
    input = End(in[1]), output = End(out[0]), words_ = End(error[0]);
    // Kept, to look at its flags.
    theirOutput = FileDescriptor(out[1]);
  }
  ~Launcher() {
    if (pid_ > 0) ::kill(pid_, SIGKILL), ended();
  }
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  void signal(int number) const { ::kill(pid_, number); }
  /// The exit code, once it has ended of itself.
  int ended() {
    int status = -1;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  /// Everything it said on standard error; ends with the program.
  std::string said() { return words_.read(); }

  End input, output;
  FileDescriptor theirOutput;

 private:
  pid_t pid_ = -1;
  End words_;
};

inline std::string absent(const std::string& id) {
  return R"({"error":{"code":-32603,"message":"The Vorlane agent is not running. Open Vorlane, then try again."},"id":)" +
         id + R"(,"jsonrpc":"2.0"})" + "\n";
}

inline std::string request(const std::string& id, const std::string& method = "x") {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":")" + method + "\"}\n";
}

inline std::string answer(const std::string& id, const std::string& result = "{}") {
  return R"({"id":)" + id + R"(,"jsonrpc":"2.0","result":)" + result + "}\n";
}

}  // namespace vorlane::testing
