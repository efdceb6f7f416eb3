#pragma once

#include "base/paths/Paths.h"
#include "cloud/Deployment.h"

#include <string>
#include <vector>

namespace vorlane::ctl {

/// What every command is given.
struct Context {
  Paths paths;
  Deployment deployment;
  /// The words behind the command's own.
  std::vector<std::string> arguments;
};

/// Runs the command and returns what it prints. Throws UsageFailure when there is
/// no such command or its words are wrong, naming them, and Failure when it fails.
std::string run(const std::string& command, const Context& context);

}  // namespace vorlane::ctl
