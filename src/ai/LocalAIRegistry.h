#pragma once

#include "ai/AICall.h"
#include "ai/LocalAIProvider.h"
#include "base/tasks/Task.h"

#include <memory>
#include <string>

namespace vorlane {

/// Decides which provider serves a task, from what is available and what the person has
/// picked. All that the tools see of the local models. Callable from any thread; the
/// caller keeps the registry alive until a task of it has ended.
class LocalAIRegistry {
 public:
  virtual ~LocalAIRegistry() = default;

  /// The provider that would serve the task now; null when there is none. Looks for no new ones.
  virtual Task<std::shared_ptr<LocalAIProvider>> provider(AITask task) = 0;
  /// The sentence that explains to the person why no provider serves the task.
  virtual Task<std::string> unavailableReason(AITask task) = 0;
  /// Runs the call on the provider of its task, and records how it went. Throws
  /// AIError, providerUnavailable when there is none.
  virtual Task<AIResult> runAndLog(AICall call) = 0;
};

}  // namespace vorlane
