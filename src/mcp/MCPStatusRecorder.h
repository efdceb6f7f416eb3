#pragma once

#include "mcp/MCPStatusSnapshot.h"

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Remembers the tool calls of one server. Callable from any thread; each
/// operation is a few lines under a lock.
class MCPStatusRecorder {
 public:
  /// Notes one finished call of the tool `name`.
  void record(std::string_view name, Date date, bool failed);
  MCPStatusSnapshot snapshot(std::int64_t activeConnections, Date date) const;

 private:
  mutable std::mutex lock_;
  std::optional<MCPStatusSnapshot::LastToolCall> lastToolCall_;
  std::map<std::string, Date, std::less<>> namespaceLastSeen_;
  /// The failures of the hour before the last one, oldest first.
  std::deque<Date> errorTimestamps_;
};

}  // namespace vorlane
