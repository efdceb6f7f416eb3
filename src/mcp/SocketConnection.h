#pragma once

#include "base/FileDescriptor.h"
#include "base/tasks/Task.h"
#include "mcp/MCPServer.h"
#include "net/AnswerQueue.h"
#include "net/LineBuffer.h"

#include <boost/asio/posix/stream_descriptor.hpp>

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace vorlane {

/// What the connections of one socket share.
struct SocketSettings {
  std::shared_ptr<MCPServer> server;
  /// Run by one thread: it reads, and sends what is not sent at once.
  Executor io;
  /// Runs the lines.
  Executor concurrent;
  /// How many connections are open.
  std::atomic<std::size_t> open = 0;
};

/// One connection of the assistants' socket: every line that it reads runs in a task
/// of its own, and every answer is one whole line, in whatever order the tasks end.
/// What the client may pile up is bounded on both sides: while it leaves answers
/// untaken, or has sent more lines than could be started, nothing more is read
/// from it. How many started calls wait for something is not bounded. It lives as
/// long as it waits for its client or a task works for it.
class SocketConnection : public std::enable_shared_from_this<SocketConnection> {
 public:
  /// `socket` is connected and non-blocking. On `io`.
  SocketConnection(std::shared_ptr<SocketSettings> settings, FileDescriptor socket);
  ~SocketConnection();
  SocketConnection(const SocketConnection&) = delete;
  SocketConnection& operator=(const SocketConnection&) = delete;

  /// Reads until the client ends. On `io`.
  void read();
  /// Ends the connection, from any thread. Answers of tasks that still run go nowhere.
  void cut();

 private:
  void waitToRead();
  void take(std::string_view bytes);
  void wakeWorkers();
  std::size_t untaken() const;
  bool mayStart() const;
  void runLines();
  bool nextLine(std::string& line);
  void finish(std::string answer);
  void flush();
  bool hasRoom(std::size_t parts) const;
  void goOn();
  void close();

  const std::shared_ptr<SocketSettings> settings_;
  // Used on `io` alone.
  LineBuffer received_;
  /// The answers that are on their way.
  AnswerQueue sending_;

  /// The bytes of `sending_`, after each attempt.
  std::atomic<std::size_t> unsent_ = 0;

  /// Guards all that follows.
  std::mutex lock_;
  boost::asio::posix::stream_descriptor socket_;
  std::deque<std::string> lines_;
  std::size_t lineBytes_ = 0;
  /// Those that are gathered meanwhile.
  AnswerQueue answers_;
  /// Workers that take lines, and calls that were started and not answered.
  std::size_t workers_ = 0;
  std::size_t callsInFlight_ = 0;
  /// The client takes no answers any more.
  bool deaf_ = false;
  /// Nothing is read until there is room.
  bool paused_ = false;
  /// A flush is on its way to `io`, or works or waits there.
  bool flushing_ = false;
};

}  // namespace vorlane
