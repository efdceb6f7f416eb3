#pragma once

#include "platform/UserDefaults.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// Remembers whether MCP access is on, and for which account, so that access
/// never carries over to somebody who signs in afterwards. Survives restarts.
/// Readable from any thread; the profile syncer alone writes.
class AccessGate {
 public:
  explicit AccessGate(std::shared_ptr<UserDefaults> defaults);

  /// Whether access is on, for whomever.
  bool isOn() const;
  /// Whether access is on for this user; false for nobody.
  bool isEnabled(const std::optional<std::string>& userID) const;
  /// Writes flag and owner in one step; the owner is kept only with access on.
  /// Throws Failure when the defaults cannot be written; a gate that was to be
  /// closed is closed all the same, for as long as this process lives.
  void set(bool enabled, const std::optional<std::string>& owner);

 private:
  std::shared_ptr<UserDefaults> defaults_;
  /// True from the moment of a denial until the store has taken it, or access is
  /// granted anew.
  std::atomic<bool> closed_{false};
};

}  // namespace vorlane
