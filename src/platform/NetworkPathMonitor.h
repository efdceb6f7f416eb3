#pragma once

#include "base/tasks/Task.h"

#include <functional>
#include <memory>

namespace vorlane {

/// Watches whether this machine has a way to the network. Stands for the system's
/// network path monitor. One start in its life; destroying it cancels it.
class NetworkPathMonitor {
 public:
  /// Whether the path is satisfied.
  using Handler = std::function<void(bool satisfied)>;

  virtual ~NetworkPathMonitor() = default;
  /// Calls `handler` on `executor` (a strand), soon with the state as it is and then after
  /// each change. Throws std::system_error when the system cannot be asked.
  virtual void start(Executor executor, Handler handler) = 0;
  /// No call begins after this returns, when it is called on `executor`; from elsewhere,
  /// one that has just begun may finish. Harmless when not started.
  virtual void cancel() = 0;
};

/// The monitor of this system; `io` carries its descriptor. It counts the path as satisfied
/// while the main table holds a default route that leads somewhere, or always with `assumeOnline`.
std::unique_ptr<NetworkPathMonitor> makeNetworkPathMonitor(Executor io, bool assumeOnline);

}  // namespace vorlane
