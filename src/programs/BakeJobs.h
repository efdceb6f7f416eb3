#pragma once

#include "programs/BakeCommandLine.h"
#include "programs/BakeInterruption.h"

namespace vorlane::bake {

/// Renders the bundles of the command line one after another: a line of JSON on standard output
/// for each that is finished, failures and notices on standard error. Gives the exit code.
int runJobs(const CommandLine& line, const Interruption& interruption);

/// Prints "vorlane-bake: " and the text on standard error.
void complain(const std::string& text);

}  // namespace vorlane::bake
