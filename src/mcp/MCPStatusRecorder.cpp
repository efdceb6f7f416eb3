#include "mcp/MCPStatusRecorder.h"

#include <algorithm>

namespace vorlane {
namespace {

constexpr std::chrono::hours errorWindow{1};

}  // namespace

void MCPStatusRecorder::record(std::string_view name, Date date, bool failed) {
  const std::scoped_lock hold(lock_);
  if (!failed) lastToolCall_ = {std::string(name), date};
  if (const auto underscore = name.find('_'); underscore != std::string_view::npos) {
    const auto [entry, added] = namespaceLastSeen_.try_emplace(std::string(name.substr(0, underscore)), date);
    entry->second = std::max(entry->second, date);
  }
  if (!failed) return;
  // Calls may end out of order, and the clock may be set back.
  errorTimestamps_.insert(std::ranges::upper_bound(errorTimestamps_, date), date);
  const auto kept = std::ranges::lower_bound(errorTimestamps_, date - errorWindow);
  errorTimestamps_.erase(errorTimestamps_.begin(), kept);
}

MCPStatusSnapshot MCPStatusRecorder::snapshot(std::int64_t activeConnections, Date date) const {
  const std::scoped_lock hold(lock_);
  const auto recent = std::ranges::lower_bound(errorTimestamps_, date - errorWindow);
  return {.activeConnectionCount = activeConnections,
          .lastToolCall = lastToolCall_,
          .errorsInLastHour = std::distance(recent, errorTimestamps_.end()),
          .namespaceLastSeen = {namespaceLastSeen_.begin(), namespaceLastSeen_.end()}};
}

}  // namespace vorlane
