#pragma once

#include "base/FileDescriptor.h"
#include "base/tasks/Task.h"
#include "net/HTTPMessage.h"
#include "net/HTTPRequestParser.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

namespace vorlane {

/// One connection: reads one request, sends one answer, closes. There is no
/// limit on how long the client takes. It lives as long as an operation waits for
/// its client or a task works on its request, and counts itself among the open
/// ones until its socket is closed.
///
/// Most clients have sent everything before they are accepted, and take the whole
/// answer at once: such a connection never meets the event loop.
class HTTPConnection : public std::enable_shared_from_this<HTTPConnection> {
 public:
  using OpenCount = std::atomic<std::size_t>;
  /// Called on `io` with the one request. Dropping the connection closes it.
  using Handler = std::function<void(std::shared_ptr<HTTPConnection>, HTTPRequest)>;

  /// `io` is run by one thread. `socket` is connected and non-blocking.
  HTTPConnection(Executor io, FileDescriptor socket, std::shared_ptr<OpenCount> open,
                 std::shared_ptr<const Handler> handler);
  ~HTTPConnection();
  HTTPConnection(const HTTPConnection&) = delete;
  HTTPConnection& operator=(const HTTPConnection&) = delete;

  /// Reads what is there and waits for the rest. On `io`.
  void read();
  /// Sends the answer and closes, from any thread; once, after the handler was called.
  void answer(HTTPMessage message);

 private:
  enum class Sending { complete, blocked, failed };
  using Step = void (HTTPConnection::*)();

  int descriptor() const;
  void waitFor(boost::asio::posix::stream_descriptor::wait_type what, Step next);
  Sending sendSome();
  void sendRest();
  void finish();
  bool clientMaySendMore() const;
  void linger();
  void drain();
  void close();

  const Executor io_;
  const std::shared_ptr<OpenCount> open_;
  const std::shared_ptr<const Handler> handler_;
  FileDescriptor socket_;
  /// Owns the socket from the first time on that the client has to be waited for.
  std::optional<boost::asio::posix::stream_descriptor> waiting_;
  HTTPRequestParser parser_;
  HTTPMessage message_;
  /// Bytes of the message that are on their way.
  std::size_t sent_ = 0;
  std::size_t drained_ = 0;
  std::optional<boost::asio::steady_timer> deadline_;
};

}  // namespace vorlane
