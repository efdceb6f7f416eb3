#pragma once

#include "ai/AICall.h"
#include "base/tasks/Task.h"

#include <set>
#include <string>

namespace vorlane {

/// One model, or one service, that can run calls. Immutable; callable from any thread.
class LocalAIProvider {
 public:
  virtual ~LocalAIProvider() = default;

  /// Unique among the providers that are known at one time.
  virtual std::string id() const = 0;
  virtual std::set<AICapability> capabilities() const = 0;
  /// Throws AIError. The caller keeps the provider alive until the task has ended.
  virtual Task<AIResult> run(AICall call) = 0;

  bool covers(AITask task) const { return capabilities().contains(requiredCapability(task)); }
};

}  // namespace vorlane
