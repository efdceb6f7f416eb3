#pragma once

#include "base/NotificationCenter.h"

#include <functional>
#include <string>
#include <string_view>

namespace vorlane {

/// Named, payload-free signals between the processes of this person's suite.
/// Stands for the Darwin notification centre. Callable from any thread.
class SignalCenter {
 public:
  virtual ~SignalCenter() = default;

  /// Signals every process that observes `name`. Observers of this process run on
  /// the calling thread before post returns, and once for each post of its own.
  /// Never throws; false when a signal cannot be sent, which is also logged.
  virtual bool post(std::string_view name) = 0;

  /// `handler` runs at least once after each post of any process; posts in quick
  /// succession may be joined. For posts of other processes it runs on a thread of
  /// the centre's choosing. What it throws is logged.
  [[nodiscard]] virtual Observation observe(std::string name, std::function<void()> handler) = 0;
};

}  // namespace vorlane
