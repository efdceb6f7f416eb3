#include "auth/AuthAccountEpoch.h"

#include "auth/AuthNotifications.h"
#include "base/ShellLog.h"

#include <cstdlib>
#include <limits>
#include <mutex>

namespace vorlane {

/// Shared with the observer, which may still run while the epoch is destroyed.
struct AuthAccountEpoch::State {
  explicit State(const NotificationCenter& center) : notifications(center) {}

  void ownerChanged() {
    {
      const std::scoped_lock hold(lock);
      if (value == std::numeric_limits<std::int64_t>::max()) {
        // Going on would let an old fence pass again.
        shellLog("the account epoch overflowed");
        std::abort();
      }
      ++value;
    }
    notifications.post(auth::ownerEpoch);
    notifications.post(auth::changed);
  }

  std::mutex lock;
  std::int64_t value = 0;
  NotificationCenter notifications;  // a handle on the one centre
};

AuthAccountEpoch::AuthAccountEpoch(SignalCenter& signals, const NotificationCenter& notifications)
    : state_(std::make_shared<State>(notifications)),
      observation_(signals.observe(auth::ownerChanged, [state = state_] { state->ownerChanged(); })) {}

std::int64_t AuthAccountEpoch::value() const {
  const std::scoped_lock hold(state_->lock);
  return state_->value;
}

}  // namespace vorlane
