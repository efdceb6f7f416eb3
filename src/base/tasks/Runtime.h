#pragma once

#include "base/tasks/Task.h"

#include <memory>

namespace vorlane {

class Poller;

/// The process's threads, kept apart so that work which waits for a database or a disk
/// can never stop a timer from firing:
///  - the poller, up to max(4, cores) threads, for the clients' connections: who reads a
///    request there carries it out, up to the first thing that it has to wait for;
///  - the concurrent executor, max(4, cores) threads, for what goes on after such a wait, and
///    for services; both may make short blocking calls;
///  - the I/O executor, one thread, for timers, signals and sockets of our own; nothing
///    that runs there may block.
class Runtime {
 public:
  Runtime();
  /// Stops all three and joins their threads; work that is still queued is
  /// destroyed with them.
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  Executor io() const;
  Executor concurrent() const;
  Poller& poller() const;

  /// As the destructor; a second call does nothing. Not from a thread of the runtime.
  void stop();

 private:
  struct Contexts;
  std::unique_ptr<Contexts> contexts_;
};

/// The main executor: what runs on it runs on the one thread that called run.
/// A plain loop when headless; the desktop program puts its toolkit's loop here.
class MainLoop {
 public:
  virtual ~MainLoop() = default;
  virtual Executor executor() const = 0;
  /// Runs until stop is called.
  virtual void run() = 0;
  /// From any thread.
  virtual void stop() = 0;
};

std::unique_ptr<MainLoop> makeHeadlessMainLoop();

}  // namespace vorlane
