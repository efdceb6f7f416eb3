#pragma once

#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "base/tasks/TaskGroup.h"
#include "net/Listener.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace vorlane {

struct ControlSettings;

/// The agent's private socket for `vorlanectl` and second starts: a Unix socket,
/// mode 0600, that takes one JSON object a line and answers each with one line:
///
///     {"command": NAME, ...}  ->  {"ok": true, ...} or {"ok": false, "error": TEXT}
///
/// Lines of one connection are answered in order. A line that is too long, or a
/// client that is silent for too long, ends the connection; any other fault is an
/// answer. The executors outlive the server.
class ControlServer {
 public:
  /// Answers one message, which holds a string "command". Runs on the concurrent
  /// executor, several at once, and may still run when the server is gone. What it
  /// throws becomes the "error".
  using Handler = std::function<Task<JSONMap>(JSONMap message)>;

  struct Limits {
    std::size_t connections = 32;
    /// For a client to send a whole line, or to take an answer.
    std::chrono::milliseconds idleTimeout{30'000};
    /// For the handler, which is cancelled then.
    std::chrono::milliseconds handling{60'000};
  };

  ControlServer(std::string path, Executor io, Executor concurrent, Handler handler);
  ControlServer(std::string path, Executor io, Executor concurrent, Handler handler, Limits limits);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Takes the place of a socket that an earlier agent left behind: the caller
  /// holds the instance lock, so nobody listens there. Throws Failure when it
  /// cannot listen, or when something other than a socket stands at the path.
  void start();
  /// Closes every connection and removes the socket's file.
  void stop();

  const std::string& path() const { return path_; }

 private:
  const std::string path_;
  const Executor io_;
  const std::shared_ptr<const ControlSettings> settings_;
  std::shared_ptr<TaskGroup> connections_;
  std::shared_ptr<Listener> listener_;
};

}  // namespace vorlane
