#pragma once

#include "base/Failure.h"
#include "base/JSON.h"

#include <chrono>
#include <string>

/// The other end of ControlServer, for programs that ask one thing and end.
namespace vorlane::ControlClient {

/// Nobody listens there.
class NobodyListens : public Failure {
 public:
  using Failure::Failure;
};

/// Sends one message to the agent that listens at `path` and gives its answer,
/// whatever its "ok" says. Blocks the calling thread. Throws NobodyListens, Failure
/// when the answer is none, and TimeoutFailure when it has not come within
/// `timeout`, which covers everything from connecting on.
JSONMap request(const std::string& path, const JSONMap& message, std::chrono::milliseconds timeout);

}  // namespace vorlane::ControlClient
