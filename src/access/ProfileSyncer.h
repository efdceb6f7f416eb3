#pragma once

#include "access/AccessGate.h"
#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/Timing.h"
#include "cloud/API.h"

#include <functional>
#include <memory>
#include <string>

namespace vorlane {

/// Keeps the gate in step with the cloud profile's "mcpAccess", for the account
/// that is signed in. Whatever goes wrong turns access off. A change of account
/// closes the gate before the post that announces it returns. Callable from any
/// thread; the destructor stops it.
class ProfileSyncer {
 public:
  struct Settings {
    std::shared_ptr<AccessGate> gate;
    /// The API that has the profile, and the path of its endpoint.
    cloud::API api;
    std::string path;
    Log log;
    /// Makes the server follow the gate. Never run twice at once: requests that
    /// come while it runs are joined into one more run. May stop or start the syncer.
    std::function<Task<>()> refreshAction;
    /// Where "com.vorlane.auth.owner-epoch" is posted; has to outlive the syncer.
    NotificationCenter* notifications = nullptr;
    /// What the tasks run on.
    Executor executor;
    Sleeper sleep = sleepFor;
  };

  ProfileSyncer();
  ~ProfileSyncer();
  ProfileSyncer(const ProfileSyncer&) = delete;
  ProfileSyncer& operator=(const ProfileSyncer&) = delete;

  /// Stops what runs, then observes account changes and polls, beginning with a sync.
  void start(Settings settings);
  /// Cancels the polling. A refresh action that is running comes to its end; one
  /// that was only asked for does not begin.
  void stop();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
