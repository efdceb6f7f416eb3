#pragma once

#include "platform/SecretVault.h"

namespace vorlane {

/// A vault whose calls may hang, with a way to end the one that does. All calls
/// but `interrupt` and `stamp` come from one thread.
class InterruptibleVault : public SecretVault {
 public:
  /// Ends the call that runs now with notAvailable, soon. From any thread.
  virtual void interrupt() = 0;
  /// Makes ready for the next call. From the thread of the calls.
  virtual void reset() = 0;
  /// Whether the service behind it is there and has a place for secrets. One
  /// that is there and does not answer counts: its secrets must not be sought
  /// elsewhere for the while.
  virtual bool usable() = 0;
};

}  // namespace vorlane
