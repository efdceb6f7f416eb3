#pragma once

#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/Task.h"
#include "base/tasks/Timing.h"
#include "platform/NetworkPathMonitor.h"
#include "platform/SignalCenter.h"
#include "sync/ScenewardPusher.h"

#include <functional>
#include <memory>

namespace vorlane {

/// Starts a pass of the project pusher when there is a reason for one: a change of
/// authentication, the signal that a save waits, or the network's return. Retries with a growing
/// delay while a save stays pending, and is silent while the machine is offline. Reasons that
/// come during a pass make one further pass. Nothing polls.
class ScenewardPushTriggers {
 public:
  struct Settings {
    /// One pass; runs on a strand over `executor`, never twice at once. Has to own the pusher.
    std::function<Task<ScenewardPusher::Outcomes>()> runOnce;
    std::unique_ptr<NetworkPathMonitor> monitor;
    /// Where auth::changed is posted.
    NotificationCenter notifications;
    std::shared_ptr<SignalCenter> signals;
    /// The concurrent executor.
    Executor executor;
    Log log;
    Sleeper sleep = sleepFor;
  };

  explicit ScenewardPushTriggers(Settings settings);
  /// As stop.
  ~ScenewardPushTriggers();
  ScenewardPushTriggers(const ScenewardPushTriggers&) = delete;
  ScenewardPushTriggers& operator=(const ScenewardPushTriggers&) = delete;

  /// Once, and on the thread that calls stop. The monitor's first report starts the first pass;
  /// where the network cannot be watched it counts as there, which is logged.
  void start();
  /// When this returns no pass begins any more; one that runs is cancelled and its save stays
  /// pending. For good, and harmless when repeated.
  void stop();
  /// After stop: ends when the last pass has let go of everything that it used.
  Task<> join();

  /// Asks for a pass. From any thread; ignored while offline.
  void trigger();

 private:
  struct State;

  std::shared_ptr<State> state_;
  std::unique_ptr<NetworkPathMonitor> monitor_;
  NotificationCenter notifications_;
  std::shared_ptr<SignalCenter> signals_;
  Observation observer_, pending_;
};

}  // namespace vorlane
