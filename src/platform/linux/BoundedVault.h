#pragma once

#include "base/ShellLog.h"
#include "platform/linux/InterruptibleVault.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// Puts a bound on a vault that may hang: its calls run on a thread of their own,
/// and a caller waits `patience` at most, then gets notAvailable. After
/// that, calls fail at once until a back-off has passed, which doubles with each
/// further time-out up to `longestBackOff`.
class BoundedVault : public SecretVault {
 public:
  struct Limits {
    std::chrono::milliseconds patience{3'000};
    std::chrono::milliseconds firstBackOff{5'000};
    std::chrono::milliseconds longestBackOff{60'000};
  };
  using SteadyClock = std::function<std::chrono::steady_clock::time_point()>;

  BoundedVault(std::unique_ptr<InterruptibleVault> slow, Limits limits, Log log,
               SteadyClock clock = std::chrono::steady_clock::now);
  /// Interrupts the call that runs and waits for its end.
  ~BoundedVault() override;

  Read read(const SecretItem& item) override;
  vault::Status update(const SecretItem& item, const std::string& bytes) override;
  vault::Status add(const SecretItem& item, const std::string& bytes) override;
  vault::Status remove(const SecretItem& item) override;
  /// Nothing after a call that failed, until one has succeeded: a keyring that
  /// answers again need not say so.
  std::optional<std::string> stamp(const SecretItem& item) override;
  /// True when it does not answer in time.
  bool usable();

 private:
  struct State;
  Read call(std::function<Read(InterruptibleVault&)> work);

  const std::unique_ptr<State> state_;
};

}  // namespace vorlane
