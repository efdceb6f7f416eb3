#pragma once

#include "base/FileDescriptor.h"
#include "base/tasks/Poller.h"
#include "base/tasks/Task.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vorlane {

/// Accepts the connections of one listening socket, of whatever family. When the
/// process or the machine is out of descriptors or memory, accepting pauses, says
/// so in the log once, and goes on when there is room again; clients wait in the
/// kernel's queue meanwhile. Made with make_shared. `io` and the poller have to outlive it.
class Listener final : public Poller::Source, public std::enable_shared_from_this<Listener> {
 public:
  /// Takes a connected, non-blocking, close-on-exec socket, on `io` or on a thread of the poller.
  using Accepted = std::function<void(FileDescriptor)>;

  /// `socket` is bound, listening and non-blocking. `name` stands in the log.
  Listener(Executor io, FileDescriptor socket, std::string name, Accepted accepted);
  /// The same, waiting by the poller: whoever accepts a connection may serve it at once, while
  /// another thread accepts the next. `noRoom` is called when there is no descriptor for one.
  Listener(Executor io, Poller& poller, FileDescriptor socket, std::string name, Accepted accepted,
           std::function<void()> noRoom);

  void start();
  /// From any thread. On return the socket is closed, and its address is free.
  void close();

 private:
  enum class Step { accepted, again, waits, paused, closed };

  Step acceptOne(FileDescriptor& connection);
  int descriptor();
  void ready() override;
  void pass(FileDescriptor connection);
  void acceptWaiting();
  void wait();
  void pause(int reason);

  const std::string name_;
  const Accepted accepted_;
  const std::function<void()> noRoom_;
  Poller* const poller_ = nullptr;
  /// Guards what follows: close comes from another thread.
  std::mutex lock_;
  FileDescriptor socket_;
  /// Where it waits: one of the two.
  std::optional<boost::asio::posix::stream_descriptor> waiting_;
  Poller::Key key_ = 0;
  boost::asio::steady_timer retry_;
  /// From the first failure for want of room until the kernel's queue is empty again.
  bool pausing_ = false;
  /// Given up for the moment that the log needs to open its file.
  FileDescriptor reserve_;
};

}  // namespace vorlane
