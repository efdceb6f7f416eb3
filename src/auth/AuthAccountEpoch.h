#pragma once

#include "base/NotificationCenter.h"
#include "platform/SignalCenter.h"

#include <cstdint>
#include <memory>

namespace vorlane {

/// A counter of this process that moves whenever the owner of the stored tokens
/// changes, in whichever process. Whoever starts work for an account notes the
/// value and compares it before the result counts. From 0 in every process, and
/// only compared within one. Callable from any thread.
///
/// On a change the value rises first, then auth::ownerEpoch and auth::changed are
/// posted, in this order, on the thread that the signal arrives on: that of the
/// poster for a change made in this process, else one of the signal centre's.
class AuthAccountEpoch {
 public:
  /// Observes from here on. `signals` has to outlive the object.
  AuthAccountEpoch(SignalCenter& signals, const NotificationCenter& notifications);

  std::int64_t value() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
  Observation observation_;
};

}  // namespace vorlane
