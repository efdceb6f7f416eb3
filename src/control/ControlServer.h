#pragma once

#include "base/tasks/Task.h"
#include "base/tasks/TaskGroup.h"
#include "control/ControlCommands.h"
#include "net/Listener.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace vorlane {

struct ControlSettings;

/// The agent's private socket for `vorlanectl` and second starts: a Unix socket, mode 0600,
/// that takes one JSON object a line and answers each with any number of lines about the
/// steps of the work and one last line:
///
///     {"command": NAME, ...}  ->  {"event": {...}} ...
///                                 {"ok": true, ...} or {"ok": false, "error": TEXT}
///
/// Lines of one connection are answered in order. A command may take as long as it needs; when
/// its caller closes the connection, it is cancelled. A line that is too long, or a client that
/// takes too long to send or to take one, ends the connection; any other fault is an
/// answer. The executors outlive the server.
class ControlServer {
 public:
  struct Limits {
    std::size_t connections = 32;
    /// For a client to send a whole line, or to take one.
    std::chrono::milliseconds idleTimeout{30'000};
  };

  ControlServer(std::string path, Executor io, Executor concurrent, ControlCommands commands);
  ControlServer(std::string path, Executor io, Executor concurrent, ControlCommands commands, Limits limits);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Takes the place of a socket that an earlier agent left behind: the caller
  /// holds the instance lock, so nobody listens there. Throws Failure when it
  /// cannot listen, or when something other than a socket stands at the path.
  void start();
  /// Closes every connection, cancels what runs for it and removes the socket's file.
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
