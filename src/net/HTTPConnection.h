#pragma once

#include "base/FileDescriptor.h"
#include "base/tasks/Poller.h"
#include "base/tasks/Task.h"
#include "net/DescriptorReserve.h"
#include "net/HTTPMessage.h"
#include "net/HTTPRequestParser.h"

#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace vorlane {

/// What the connections of one transport share.
struct HTTPSettings {
  /// What only the head of a request decides: see HTTPRoute.
  std::function<std::optional<HTTPMessage>(const HTTPRequest& head)> answerToHead;
  /// Called with the one request, on the thread that read it. Dropping the connection closes it.
  std::function<void(std::shared_ptr<class HTTPConnection>, HTTPRequest)> serve;
  Poller& poller;
  /// For timers.
  Executor io;
  std::shared_ptr<DescriptorReserve> reserve;
  /// How many connections are open.
  std::atomic<std::size_t> open = 0;
};

/// One connection: reads one request, sends one answer, closes. There is no
/// limit on how long the client takes. It lives as long as it waits for
/// its client or a task works on its request, and counts itself among the open
/// ones until its socket is closed. One thread at a time works on it, whichever.
///
/// Most clients have sent everything before they are accepted, and take the whole
/// answer at once: such a connection never meets the poller.
class HTTPConnection final : public Poller::Source,
                             public DescriptorReserve::Guest,
                             public std::enable_shared_from_this<HTTPConnection> {
 public:
  /// `socket` is connected and non-blocking.
  HTTPConnection(std::shared_ptr<HTTPSettings> settings, FileDescriptor socket);
  ~HTTPConnection() override;
  HTTPConnection(const HTTPConnection&) = delete;
  HTTPConnection& operator=(const HTTPConnection&) = delete;

  /// Reads what is there and waits for the rest.
  void read();
  /// Sends the answer and closes, from any thread; once, after `serve` was called.
  void answer(HTTPMessage message);
  void cut() override;

 private:
  enum class Sending { complete, blocked, failed };
  using Step = void (HTTPConnection::*)();

  void ready() override;
  bool wantsBody(const HTTPRequest& head);
  void take(HTTPRequest request);
  void waitForRequest();
  void waitFor(Poller::Wait what, Step next);
  void unwatch();
  Sending sendSome();
  void sendRest();
  void finish();
  bool clientMaySendMore() const;
  void linger();
  void drain();
  void close();

  const std::shared_ptr<HTTPSettings> settings_;
  HTTPRequestParser parser_;
  /// Known before the request is complete.
  std::optional<HTTPMessage> settled_;
  std::unique_ptr<DescriptorReserve::Place> place_;
  HTTPMessage message_;
  /// Bytes of the message that are on their way.
  std::size_t sent_ = 0;
  std::size_t drained_ = 0;
  std::optional<boost::asio::steady_timer> deadline_;

  /// Guards the socket against a cut from another thread, and what the poller knows of it.
  std::mutex lock_;
  FileDescriptor socket_;
  Poller::Key key_ = 0;
  Step next_ = nullptr;
};

}  // namespace vorlane
