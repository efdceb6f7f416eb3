#pragma once

#include "base/tasks/Task.h"

#include <string_view>

namespace vorlane {

class Contributions;

/// One part of the agent: what it does, from the start of the process to its end. Made by
/// the composition, which owns it; used on the main executor.
class Service {
 public:
  virtual ~Service() = default;

  /// For log lines.
  virtual std::string_view name() const = 0;
  /// Says once, before any service starts, what it offers to others. What is handed over is
  /// used until the process ends, also while the service is stopped.
  virtual void contribute(Contributions&) {}
  /// Whether it is of no use without the agent's store, and is then not started.
  virtual bool needsStore() const { return false; }
  /// Begins the work and returns at once: nothing here waits. Throws what keeps it from
  /// starting, which is logged; the others start all the same.
  virtual void start() = 0;
  /// Ends the work, in tests and before a relaunch. An abrupt end of the process is safe without it.
  virtual Task<> stop() { co_return; }
};

}  // namespace vorlane
