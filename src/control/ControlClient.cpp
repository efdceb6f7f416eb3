#include "control/ControlClient.h"

#include "base/FileDescriptor.h"
#include "base/JSONArguments.h"
#include "control/ControlSocket.h"
#include "net/LineBuffer.h"

#include <fmt/format.h>

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace vorlane::ControlClient {
namespace {

using Clock = std::chrono::steady_clock;

/// For connecting, and for the agent to take the message.
constexpr std::chrono::seconds sendingPatience{5};

/// A blocking socket, each of whose calls ends by the deadline.
class Exchange {
 public:
  explicit Exchange(const std::string& path)
      : path_(path), socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (!socket_) throw Failure(withErrno("cannot make a socket", errno));
    endWithin(sendingPatience);
  }

  /// From now on; none means never.
  void endWithin(std::optional<std::chrono::milliseconds> patience) {
    deadline_ = patience ? std::optional(Clock::now() + *patience) : std::nullopt;
  }

  void connect() {
    const auto address = controlAddress(path_);
    boundNextCall();
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    if (errno == ENOENT || errno == ECONNREFUSED) throw NobodyListens("no agent is listening at " + path_);
    fail("cannot reach the agent at ");
  }

  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      boundNextCall();
      const auto count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      // An agent that turns us away says why before it closes: its answer is read all the same.
      if (count < 0 && (errno == EPIPE || errno == ECONNRESET)) return;
      if (count < 0 && errno != EINTR) fail("cannot send to the agent at ");
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  std::string receiveLine() {
    std::array<char, 16384> piece{};
    for (;;) {
      if (auto line = lines_.next()) return *std::move(line);
      if (lines_.size() > controlLineLimit) {
        throw Failure("the answer of the agent at " + path_ + " is too long");
      }
      boundNextCall();
      const auto count = ::recv(socket_.get(), piece.data(), piece.size(), 0);
      if (count == 0) throw Failure("the agent at " + path_ + " closed the connection without an answer");
      if (count < 0 && errno != EINTR) fail("cannot read from the agent at ");
      if (count > 0) lines_.append({piece.data(), static_cast<std::size_t>(count)});
    }
  }

 private:
  void boundNextCall() const {
    using std::chrono::microseconds;
    timeval limit{};  // zero is for ever
    if (deadline_) {
      const auto left = std::chrono::duration_cast<microseconds>(*deadline_ - Clock::now());
      if (left <= microseconds::zero()) throw timedOut();
      limit = {.tv_sec = static_cast<time_t>(left.count() / 1'000'000),
               .tv_usec = static_cast<suseconds_t>(left.count() % 1'000'000)};
    }
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }

  [[noreturn]] void fail(const char* what) const {
    const int error = errno;
    if (error == EAGAIN || error == EWOULDBLOCK) throw timedOut();
    throw Failure(withErrno(what + path_, error));
  }

  TimeoutFailure timedOut() const { return TimeoutFailure("The agent at " + path_); }

  const std::string path_;
  const FileDescriptor socket_;
  std::optional<Clock::time_point> deadline_;
  LineBuffer lines_;
};

}  // namespace

JSONMap request(const std::string& path, const JSONMap& message, const Options& options) {
  const auto line = writeJSON(message) + "\n";
  if (line.size() - 1 > controlLineLimit) {
    throw Failure(fmt::format("the message is longer than {} bytes", controlLineLimit));
  }
  Exchange exchange(path);
  exchange.connect();
  exchange.send(line);
  exchange.endWithin(options.patience);
  for (;;) {
    auto answer = parseJSONMap(exchange.receiveLine(), "the agent's answer is not a JSON object");
    if (const auto* const event = json::object(answer, "event"); event && !answer.contains("ok")) {
      if (options.onEvent) options.onEvent(*event);
      continue;
    }
    if (!json::booleanOr(answer, "ok", false)) {
      throw Failure(json::stringOr(answer, "error", "the agent refused without a reason"));
    }
    answer.erase("ok");
    return answer;
  }
}

}  // namespace vorlane::ControlClient
