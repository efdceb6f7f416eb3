#include "control/ControlServer.h"

#include "base/Failure.h"
#include "base/Text.h"
#include "base/tasks/Timing.h"
#include "control/ControlSocket.h"
#include "net/LineBuffer.h"
#include "net/UnixSocket.h"

#include <fmt/format.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>

namespace vorlane {

/// What every connection needs, shared so that it outlives the server.
struct ControlSettings {
  Executor concurrent;
  ControlServer::Handler handler;
  ControlServer::Limits limits;
};

namespace {

namespace asio = boost::asio;
using Socket = asio::local::stream_protocol::socket;
using SharedSocket = std::shared_ptr<Socket>;

JSONMap refusal(std::string error) {
  return {{"ok", false}, {"error", validUTF8(std::move(error))}};
}

std::string lineOf(const JSONMap& message) {
  return writeJSON(message) + "\n";
}

void removeStaleSocket(const std::string& path) {
  struct stat status{};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) throw Failure("something that is no socket stands at " + path);
  if (::unlink(path.c_str()) != 0) throw Failure(withErrno("cannot remove the old socket at " + path, errno));
}

FileDescriptor listenAt(const std::string& path) {
  const auto address = controlAddress(path);
  removeStaleSocket(path);
  return listenOnUnixSocket(address, path, S_IRUSR | S_IWUSR);
}

/// The next line, or nothing when the client has ended or is not worth waiting for.
/// Throws Failure for a line that is too long.
Task<std::optional<std::string>> readLine(SharedSocket socket, std::shared_ptr<std::string> buffer) {
  std::array<char, 16384> piece{};
  for (;;) {
    auto cut = extractLine(*buffer);
    const auto length = cut.line ? cut.line->size() : buffer->size();
    if (length > controlLineLimit) {
      throw Failure(fmt::format("a line may have {} bytes at most", controlLineLimit));
    }
    if (cut.line) {
      buffer->erase(0, cut.consumed);
      co_return std::move(cut.line);
    }
    boost::system::error_code error;
    const auto count = co_await socket->async_read_some(asio::buffer(piece),
                                                        asio::redirect_error(asio::use_awaitable, error));
    if (error) co_return std::nullopt;
    buffer->append(piece.data(), count);
  }
}

Task<bool> sendLine(SharedSocket socket, std::string line) {
  boost::system::error_code error;
  co_await asio::async_write(*socket, asio::buffer(line), asio::redirect_error(asio::use_awaitable, error));
  co_return !error;
}

/// Runs one message through the handler. Throws what makes the message unfit, and
/// what the handler throws.
Task<JSONMap> carryOut(std::shared_ptr<const ControlSettings> settings, std::string line) {
  auto message = parseJSONMap(line);
  const auto* const command = message.if_contains("command");
  if (command == nullptr || !command->is_string()) throw Failure("the message has no \"command\"");
  const std::string name(command->get_string());
  auto answer = co_await withTimeout<JSONMap>(
      settings->limits.handling, "The command \"" + name + "\"", [settings, message]() -> Task<JSONMap> {
        // A strand, since the work may be cancelled while it runs.
        return onExecutor(asio::make_strand(settings->concurrent), [settings, message]() -> Task<JSONMap> {
          co_return co_await settings->handler(message);
        });
      });
  answer["ok"] = true;
  co_return answer;
}

/// The answer to one line, ready to be sent.
Task<std::string> answerTo(std::shared_ptr<const ControlSettings> settings, std::string line) {
  std::exception_ptr failure;
  try {
    co_return lineOf(co_await carryOut(settings, std::move(line)));
  } catch (...) {
    failure = std::current_exception();
  }
  co_return lineOf(refusal(describe(failure)));
}

Task<> serve(std::shared_ptr<const ControlSettings> settings, SharedSocket socket) {
  const auto buffer = std::make_shared<std::string>();
  const auto idleTimeout = settings->limits.idleTimeout;
  for (;;) {
    std::optional<std::string> line;
    std::exception_ptr failure;
    try {
      line = co_await withTimeout<std::optional<std::string>>(idleTimeout, "Waiting for a line",
                                                              [=] { return readLine(socket, buffer); });
    } catch (const Failure&) {
      failure = std::current_exception();
    }
    if (!line && !failure) co_return;
    auto answer =
        failure ? lineOf(refusal(describe(failure))) : co_await answerTo(settings, *std::move(line));
    const bool sent = co_await withTimeout<bool>(idleTimeout, "Sending an answer",
                                                 [=] { return sendLine(socket, answer); });
    if (!sent || failure) co_return;
  }
}

/// Tells the client in one attempt; it has just connected, so there is room.
void turnAway(const FileDescriptor& socket, std::size_t limit) {
  const auto line = lineOf(refusal(fmt::format("all {} connections are in use", limit)));
  const auto sent = ::send(socket.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  static_cast<void>(sent);
}

}  // namespace

ControlServer::ControlServer(std::string path, Executor io, Executor concurrent, Handler handler)
    : ControlServer(std::move(path), std::move(io), std::move(concurrent), std::move(handler), Limits()) {}

ControlServer::ControlServer(std::string path, Executor io, Executor concurrent, Handler handler,
                             Limits limits)
    : path_(std::move(path)),
      io_(std::move(io)),
      settings_(std::make_shared<const ControlSettings>(
          ControlSettings{std::move(concurrent), std::move(handler), limits})) {}

ControlServer::~ControlServer() {
  stop();
}

void ControlServer::start() {
  auto listening = listenAt(path_);
  connections_ = std::make_shared<TaskGroup>();
  auto accept = [io = io_, settings = settings_,
                 weak = std::weak_ptr<TaskGroup>(connections_)](FileDescriptor accepted) {
    const auto connections = weak.lock();
    if (!connections) return;
    if (connections->size() >= settings->limits.connections) {
      return turnAway(accepted, settings->limits.connections);
    }
    auto socket = std::make_shared<Socket>(io);
    boost::system::error_code error;
    socket->assign(asio::local::stream_protocol(), accepted.get(), error);
    if (error) return;
    accepted.release();
    connections->spawn(io, "control connection", [settings, socket] { return serve(settings, socket); });
  };
  listener_ = std::make_shared<Listener>(io_, std::move(listening), "control socket", std::move(accept));
  listener_->start();
}

void ControlServer::stop() {
  if (!listener_) return;
  listener_->close();
  listener_.reset();
  connections_->cancel();
  connections_.reset();
  ::unlink(path_.c_str());
}

}  // namespace vorlane
