#include "control/ControlConnection.h"

#include "base/Failure.h"
#include "base/Text.h"
#include "base/tasks/Timing.h"
#include "control/ControlSocket.h"
#include "net/LineBuffer.h"

#include <fmt/format.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/experimental/concurrent_channel.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

#include <array>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace vorlane {
namespace {

namespace asio = boost::asio;
using Socket = asio::local::stream_protocol::socket;
using SharedSocket = std::shared_ptr<Socket>;
using Settings = std::shared_ptr<const ControlSettings>;

std::string lineOf(const JSONMap& message) {
  return writeJSON(message) + "\n";
}

/// The lines of one answer on their way from the command, which runs on other threads.
class AnswerLines {
 public:
  explicit AnswerLines(const Executor& executor) : wake_(executor, 1) {}

  void addEvent(const JSONMap& event) {
    std::string line;
    try {
      line = lineOf({{"event", event}});
    } catch (const JSONWriteFailure&) {
      return;  // a step that cannot be told is no reason to end the work
    }
    if (line.size() <= controlLineLimit) add(std::move(line), false);
  }
  /// The last line; called once.
  void finish(std::string line) { add(std::move(line), true); }
  /// The next line; nothing behind the last one.
  Task<std::optional<std::string>> next() {
    for (;;) {
      {
        const std::scoped_lock hold(lock_);
        if (!lines_.empty()) {
          auto line = std::move(lines_.front());
          lines_.pop_front();
          co_return line;
        }
        if (finished_) co_return std::nullopt;
      }
      co_await wake_.async_receive(asio::use_awaitable);
    }
  }

 private:
  void add(std::string line, bool last) {
    {
      const std::scoped_lock hold(lock_);
      if (finished_ || (!last && lines_.size() >= eventsWaiting)) return;
      lines_.push_back(std::move(line));
      finished_ = last;
    }
    // One wake-up is kept, and is enough: who is woken looks for itself.
    wake_.try_send(boost::system::error_code());
  }

  static constexpr std::size_t eventsWaiting = 256;
  std::mutex lock_;
  std::deque<std::string> lines_;
  bool finished_ = false;
  asio::experimental::concurrent_channel<void(boost::system::error_code)> wake_;
};

/// The next line, or nothing when the client has ended. Throws Failure for a line that is too long.
Task<std::optional<std::string>> readLine(SharedSocket socket, std::shared_ptr<LineBuffer> buffer) {
  std::array<char, 16384> piece{};
  for (;;) {
    auto line = buffer->next();
    if ((line ? line->size() : buffer->size()) > controlLineLimit) {
      throw Failure(fmt::format("a line may have {} bytes at most", controlLineLimit));
    }
    if (line) co_return line;
    boost::system::error_code error;
    const auto count = co_await socket->async_read_some(asio::buffer(piece),
                                                        asio::redirect_error(asio::use_awaitable, error));
    if (error) co_return std::nullopt;
    buffer->append({piece.data(), count});
  }
}

Task<bool> sendLine(SharedSocket socket, std::string line) {
  boost::system::error_code error;
  co_await asio::async_write(*socket, asio::buffer(line), asio::redirect_error(asio::use_awaitable, error));
  co_return !error;
}

/// Sends the lines as they come. False when the client takes no more.
Task<bool> sendLines(Settings settings, SharedSocket socket, std::shared_ptr<AnswerLines> lines) {
  while (auto line = co_await lines->next()) {
    const bool sent = co_await withTimeout<bool>(settings->limits.idleTimeout, "Sending an answer",
                                                 [=] { return sendLine(socket, *line); });
    if (!sent) co_return false;
  }
  co_return true;
}

/// Ends when the client has closed its end. One that has only ended its sending, as a
/// script's pipe does, still waits for its answer.
Task<bool> hangUp(SharedSocket socket) {
  boost::system::error_code error;
  co_await socket->async_wait(Socket::wait_error, asio::redirect_error(asio::use_awaitable, error));
  co_return false;
}

/// Throws what makes the message unfit, and what the command throws.
Task<JSONMap> carryOut(Settings settings, std::string line, std::shared_ptr<AnswerLines> lines) {
  auto message = parseJSONMap(line);
  const auto* const name = message.if_contains("command");
  if (name == nullptr || !name->is_string()) throw Failure("the message has no \"command\"");
  const auto* const command = settings->commands.find(name->get_string());
  if (command == nullptr) {
    throw Failure(fmt::format("unknown command \"{}\"", std::string_view(name->get_string())));
  }
  auto answer = co_await (*command)(std::move(message), [lines](JSONMap event) { lines->addEvent(event); });
  answer["ok"] = true;
  co_return answer;
}

Task<> run(Settings settings, std::string line, std::shared_ptr<AnswerLines> lines) {
  std::exception_ptr failure;
  try {
    lines->finish(lineOf(co_await carryOut(settings, std::move(line), lines)));
    co_return;
  } catch (...) {
    failure = std::current_exception();
  }
  lines->finish(controlRefusal(describe(failure)));
}

/// Runs the command of one line and sends what it has to say. False when the client has gone;
/// what still runs for it is then cancelled.
Task<bool> answer(Settings settings, SharedSocket socket, std::string line) {
  using namespace asio::experimental::awaitable_operators;
  const auto lines = std::make_shared<AnswerLines>(co_await asio::this_coro::executor);
  TaskGroup command;
  command.spawn(settings->concurrent, "control command",
                [=, line = std::move(line)] { return run(settings, line, lines); });
  const auto ended = co_await (sendLines(settings, socket, lines) || hangUp(socket));
  co_return ended.index() == 0 && std::get<0>(ended);
}

}  // namespace

std::string controlRefusal(std::string error) {
  return lineOf({{"ok", false}, {"error", validUTF8(std::move(error))}});
}

Task<> serveControlConnection(Settings settings, SharedSocket socket) {
  const auto buffer = std::make_shared<LineBuffer>();
  for (;;) {
    std::optional<std::string> line;
    std::exception_ptr failure;
    try {
      line = co_await withTimeout<std::optional<std::string>>(
          settings->limits.idleTimeout, "Waiting for a line", [=] { return readLine(socket, buffer); });
    } catch (const Failure&) {
      failure = std::current_exception();
    }
    if (failure) co_await sendLine(socket, controlRefusal(describe(failure)));
    if (!line || !co_await answer(settings, socket, *std::move(line))) co_return;
  }
}

}  // namespace vorlane
