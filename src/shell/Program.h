#pragma once

#include "base/paths/Paths.h"
#include "cloud/Deployment.h"

#include <functional>

namespace vorlane {

/// The frame of each program's main: runs `work` with the words behind the
/// program's own, and ends with its exit code. What it throws becomes one line on
/// standard error, "NAME: TEXT", and exit 2 (UsageFailure) or 1 (anything else).
int runProgram(const char* name, int count, char** words,
               const std::function<int(const Options::Words& words, const char* programPath)>& work);

/// Where a program's files lie and what its deployment says.
struct ProgramSettings {
  Paths paths;
  Deployment deployment;
};

/// Resolves the paths, sets the process up as setUpProcess does and reads the deployment file.
/// Throws UsageFailure for a variable that is wrong or a file that cannot be used.
ProgramSettings setUpProgram(const PathOptions& options, const char* programPath);

}  // namespace vorlane
