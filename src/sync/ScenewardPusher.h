#pragma once

#include "base/NotificationCenter.h"
#include "base/ShellLog.h"
#include "base/tasks/BlockingThread.h"
#include "base/tasks/Task.h"
#include "store/ScenewardCheckpointQueue.h"
#include "sync/ScenewardPushClient.h"
#include "sync/SyncJournal.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vorlane {

/// Takes the queued Cloud Saves of the signed-in account to the cloud, one at a time and oldest
/// first. Any change of authentication, a refresh of the same user's tokens too, ends the pass
/// that runs: its fence is down before the post that announces the change returns. A save whose
/// answer was lost is sent again, so the cloud must bear repeats.
///
/// Made as a shared_ptr. Callable from any thread; passes run on their caller's executor, the
/// concurrent one, and are cancelled there.
class ScenewardPusher : public std::enable_shared_from_this<ScenewardPusher> {
 public:
  /// Acknowledged; the revision that the cloud made of it.
  struct Pushed {
    std::int64_t version = 0;
    bool operator==(const Pushed&) const = default;
  };
  /// Still pending.
  struct Failed {
    std::string reason;
    bool operator==(const Failed&) const = default;
  };
  /// The cloud refused this operation for good.
  struct Blocked {
    bool operator==(const Blocked&) const = default;
  };
  using Outcome = std::variant<Pushed, Failed, Blocked>;
  /// By operation id.
  using Outcomes = std::map<std::string, Outcome>;

  /// Observes auth::changed from here on. Asking the client's account for its user may throw,
  /// which names nobody.
  ScenewardPusher(ScenewardCheckpointQueue queue, ScenewardPushClient client,
                  NotificationCenter& notifications, std::shared_ptr<SyncJournal> journal, Log log);

  /// Runs one pass; empty when nobody is signed in or a pass runs already. A pass that is
  /// cancelled ends at its next suspension and returns what it has. Throws only what no pass
  /// can be run without, such as memory.
  Task<Outcomes> runOnce();

 private:
  /// What observers and passes share.
  struct State;
  class Pass;

  static Task<Outcomes> pass(std::shared_ptr<ScenewardPusher> self);
  using Verified = ScenewardCheckpointQueue::Verified;
  Task<std::vector<ScenewardCheckpointRequest>> pending(std::string owner,
                                                        std::shared_ptr<Verified> verified);

  const ScenewardCheckpointQueue queue_;
  const ScenewardPushClient client_;
  const std::shared_ptr<SyncJournal> journal_;
  const Log log_;
  const std::shared_ptr<State> state_;
  /// The client's account as it is seen here: its epoch moves with any change of
  /// authentication, a refresh of the same user's tokens too.
  const std::shared_ptr<const Account> account_;
  Observation observer_;
  /// For reading the queue, which hashes up to a gigabyte.
  BlockingThread reader_{"vorlane.saves"};
};

}  // namespace vorlane
