#pragma once

#include <algorithm>

namespace vorlane {

/// The delay before the next retry, which grows while retries fail. All in seconds.
struct PollBackoff {
  double base = 30;
  double cap = 900;
  double multiplier = 2;
  double current = 30;

  void backOff() { current = std::min(cap, current * multiplier); }
  void reset() { current = base; }
};

}  // namespace vorlane
