#pragma once

#include "base/Date.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace vorlane {

/// What the status view shows of the server.
struct MCPStatusSnapshot {
  struct LastToolCall {
    std::string name;
    Date timestamp;
    friend bool operator==(const LastToolCall&, const LastToolCall&) = default;
  };

  /// HTTP and Unix socket together.
  std::int64_t activeConnectionCount = 0;
  /// The last call that succeeded.
  std::optional<LastToolCall> lastToolCall;
  std::int64_t errorsInLastHour = 0;
  /// The last activity of each tool namespace, failed calls included.
  std::map<std::string, Date> namespaceLastSeen;

  friend bool operator==(const MCPStatusSnapshot&, const MCPStatusSnapshot&) = default;
};

}  // namespace vorlane
