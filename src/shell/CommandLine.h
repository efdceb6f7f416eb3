#pragma once

#include "base/Failure.h"
#include "base/paths/Paths.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorlane {

/// The command line is wrong. The program ends with exit 2 and this one line.
class UsageFailure : public Failure {
 public:
  using Failure::Failure;
};

/// What vorlane-agent was started with.
struct AgentCommandLine {
  bool headless = false;
  /// Wait for the running agent to end instead of handing over to it.
  bool relaunch = false;
  bool version = false;
  PathOptions paths;
  /// The local HTTP port; 0 lets the system choose.
  std::uint16_t port = 17800;
  std::vector<std::string> urls;

  /// Throws UsageFailure naming the option.
  static AgentCommandLine parse(const std::vector<std::string>& arguments);
};

/// Takes "--container DIR" and "--deployment FILE" (also with "=") out of the
/// front of `arguments` up to the first word that is no option. Throws
/// UsageFailure for another option, naming it.
PathOptions takePathOptions(std::vector<std::string>& arguments);

/// The place that `paths` could not make sense of, as a failure; else nothing happens.
void requireKnownVault(const Paths& paths);

/// The frame of each program's main: runs `work` with the words behind the
/// program's own, and ends with its exit code. What it throws becomes one line on
/// standard error, "NAME: TEXT", and exit 2 (usage) or 1 (anything else).
int runProgram(const char* name, int count, char** words,
               const std::function<int(std::vector<std::string> arguments, const char* programPath)>& work);

}  // namespace vorlane
