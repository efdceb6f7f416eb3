#pragma once

#include "base/paths/Paths.h"

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorlane {

/// The one connection to the agent's socket for assistants. Nothing here throws
/// but for want of memory; nothing blocks but `connect` and `reasonOfAgent`, and these for a
/// second at most, when the agent has let its queue of new connections run full.
class AgentConnection {
 public:
  explicit AgentConnection(Paths paths) : paths_(std::move(paths)) {}
  ~AgentConnection() { close(); }
  AgentConnection(const AgentConnection&) = delete;
  AgentConnection& operator=(const AgentConnection&) = delete;

  /// Looks for the agent again, since it may be running elsewhere now: in the
  /// container that was named; else in the one that the last agent has
  /// written down, then in the usual one. False when none listens.
  bool connect();
  void close();
  bool connected() const { return socket_ >= 0; }
  int descriptor() const { return socket_; }
  /// Why the last `connect` found nobody, naming the path.
  const std::string& reason() const { return reason_; }
  /// Why an agent that runs does not serve assistants, in its own words and still with JSON's
  /// escapes. Empty when none runs or it does not say so within a second.
  std::string reasonOfAgent() const;

  /// As send(2) and recv(2) do, with errno, and EAGAIN instead of waiting.
  ssize_t send(std::string_view bytes) const;
  ssize_t receive(char* room, std::size_t size) const;

 private:
  std::vector<std::string> containers() const;
  bool connectTo(const std::string& container);

  Paths paths_;
  int socket_ = -1;
  std::string reason_;
};

}  // namespace vorlane
