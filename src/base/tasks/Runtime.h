#pragma once

#include "base/tasks/Task.h"

#include <memory>

namespace vorlane {

/// The process's threads. Two contexts, kept apart so that work which waits for
/// a database or a disk can never stop a transport from accepting or a timer from
/// firing:
///  - the I/O executor, one thread, for sockets, timers and signals; nothing
///    that runs there may block;
///  - the concurrent executor, max(4, cores) threads, for the tasks of requests
///    and services, which may make short blocking calls.
class Runtime {
 public:
  Runtime();
  /// Stops both executors and joins their threads; work that is still queued is
  /// destroyed with them.
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  Executor io() const;
  Executor concurrent() const;

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
