#pragma once

#include "ai/AITask.h"
#include "base/Failure.h"

#include <string>

namespace vorlane {

/// Why a model did not answer. Its description is for the person.
class AIError : public Failure {
 public:
  enum class Kind {
    unsupportedTask,      ///< the provider cannot do this task
    providerUnavailable,  ///< there is no provider, or it cannot be reached
    transport,            ///< a failure of the network or of a process
    decoding,             ///< the answer could not be read
    notYetImplemented,
  };

  static AIError unsupportedTask(AITask task);
  // The text of these is their description.
  static AIError providerUnavailable(std::string text);
  static AIError transport(std::string text);
  static AIError decoding(std::string text);
  static AIError notYetImplemented(std::string text);

  Kind kind() const noexcept { return kind_; }
  /// The task that is not supported; of no meaning in the other kinds.
  AITask task() const noexcept { return task_; }

  friend bool operator==(const AIError& a, const AIError& b) {
    return a.kind_ == b.kind_ && a.task_ == b.task_ && a.description() == b.description();
  }

 private:
  AIError(Kind kind, std::string description, AITask task = AITask::parse)
      : Failure(std::move(description)), kind_(kind), task_(task) {}

  Kind kind_;
  AITask task_;
};

}  // namespace vorlane
