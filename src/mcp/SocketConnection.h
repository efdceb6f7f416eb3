#pragma once

#include "base/FileDescriptor.h"
#include "base/tasks/Poller.h"
#include "base/tasks/Task.h"
#include "mcp/MCPServer.h"
#include "net/AnswerQueue.h"
#include "net/DescriptorReserve.h"
#include "net/LineBuffer.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace vorlane {

/// What the connections of one socket share.
struct SocketSettings {
  std::shared_ptr<MCPServer> server;
  Poller& poller;
  /// Runs what a line does after its first wait, and the rest of a long burst.
  Executor concurrent;
  std::shared_ptr<DescriptorReserve> reserve;
  /// How many connections are open.
  std::atomic<std::size_t> open = 0;
};

/// One connection of the assistants' socket: every line that it reads runs in a task
/// of its own, and every answer is one whole line, in whatever order the tasks end.
/// The thread that reads lines runs them one after another, and sends the answers that are
/// ready by then together. Another thread reads what comes meanwhile, and runs it too when a
/// call takes long.
///
/// What the client may pile up is bounded on both sides: while it leaves answers
/// untaken, or has sent more lines than could be started, nothing more is read
/// from it. When it has gone, its answers are dropped, and what it sent is carried out as far
/// as it changes something. How many started calls wait for something is not bounded. It lives until
/// its client ends, and longer while a task works for it.
class SocketConnection final : public Poller::Source,
                               public DescriptorReserve::Guest,
                               public std::enable_shared_from_this<SocketConnection> {
 public:
  /// `socket` is connected and non-blocking.
  SocketConnection(std::shared_ptr<SocketSettings> settings, FileDescriptor socket);
  ~SocketConnection() override;
  SocketConnection(const SocketConnection&) = delete;
  SocketConnection& operator=(const SocketConnection&) = delete;

  /// Reads from here on, until the client ends.
  void start();
  /// Ends the connection, from any thread. Answers of tasks that still run go nowhere.
  void cut() override;

 private:
  class Turn;
  enum class Reading { nothing, more };

  void ready() override;
  bool goOnSending();
  Reading readSome();
  void takeLines();
  bool beginTurn();
  void runTurn();
  void wakeWorkers();
  std::size_t untaken() const;
  bool isOpen() const { return socket_ && !closing_; }
  bool mayStart() const;
  void work();
  void runLines(Turn& turn, bool isWorker);
  bool nextLine(const Turn& turn, std::string& line);
  void startCall(std::string line);
  void finish(std::string answer);
  void sendGathered();
  void flush();
  bool sendOnce();
  bool hasRoom(std::size_t parts) const;
  void goOn();
  void close();

  const std::shared_ptr<SocketSettings> settings_;
  /// The answers that are on their way: used by whoever has set `flushing_`.
  AnswerQueue sending_;

  /// The client takes no answers any more. Set under the lock, and read by the calls.
  std::atomic<bool> abandoned_ = false;

  /// Guards all that follows.
  std::mutex lock_;
  FileDescriptor socket_;
  Poller::Key key_ = 0;
  /// As long as the client has not sent a whole line.
  std::unique_ptr<DescriptorReserve::Place> place_;
  LineBuffer received_;
  std::deque<std::string> lines_;
  std::size_t lineBytes_ = 0;
  /// Those that are gathered meanwhile.
  AnswerQueue answers_;
  /// The bytes of `sending_`, after each attempt.
  std::size_t unsent_ = 0;
  /// Tasks that run lines, and calls that were started and not answered.
  std::size_t workers_ = 0;
  std::size_t callsInFlight_ = 0;
  /// Threads of the poller that run lines, and when the last of their calls was started.
  std::size_t turns_ = 0;
  std::chrono::steady_clock::time_point lastStart_;
  /// The call before took long: the lines behind the next one do not wait for it.
  bool slow_ = false;
  /// Nothing is read until there is room.
  bool paused_ = false;
  /// Somebody sends, or will, or waits until the client takes more: the latter is `blocked_`.
  bool flushing_ = false;
  bool blocked_ = false;
  /// A thread is in the midst of a send; who closes meanwhile leaves it to that thread.
  bool inSend_ = false;
  bool closing_ = false;
  bool cut_ = false;
};

}  // namespace vorlane
