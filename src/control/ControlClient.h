#pragma once

#include "base/Failure.h"
#include "base/JSON.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

/// The other end of ControlServer, for programs that ask one thing and end.
namespace vorlane::ControlClient {

/// Nobody listens there.
class NobodyListens : public Failure {
 public:
  using Failure::Failure;
};

struct Options {
  /// For the answer, once the agent has the message; none for a command that may take
  /// as long as it needs.
  std::optional<std::chrono::milliseconds> patience = std::chrono::seconds(30);
  /// Called for each step that the command tells of, on the calling thread; null for none.
  std::function<void(const JSONMap& event)> onEvent;
};

/// Sends one message to the agent that listens at `path` and gives its answer without the
/// "ok". Blocks the calling thread; ending the process meanwhile cancels the command. Throws
/// NobodyListens, TimeoutFailure when the agent takes nothing for five seconds or gives no
/// answer in time, and Failure with the agent's own words when it refuses, or with ours when
/// the answer is none.
JSONMap request(const std::string& path, const JSONMap& message, const Options& options = {});

}  // namespace vorlane::ControlClient
