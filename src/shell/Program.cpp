#include "shell/Program.h"

#include "base/Failure.h"
#include "shell/ProcessSetup.h"

#include <fmt/format.h>

#include <cstdio>

namespace vorlane {

int runProgram(const char* name, int count, char** words,
               const std::function<int(const Options::Words& words, const char* programPath)>& work) {
  // Printing to a stream that is closed or full must not throw: the exit code still tells.
  const auto complain = [name](const std::string& text) {
    std::fputs(fmt::format("{}: {}\n", name, text).c_str(), stderr);
  };
  try {
    return work(wordsOf(count, words), words[0]);
  } catch (const UsageFailure& failure) {
    complain(failure.what());
    return 2;
  } catch (const std::exception& error) {
    complain(describe(error));
    return 1;
  }
}

ProgramSettings setUpProgram(const PathOptions& options, const char* programPath) {
  ProgramSettings settings{.paths = Paths::resolve(options, processEnvironment()), .deployment = {}};
  const auto& paths = settings.paths;
  if (!paths.unknownVault.empty()) {
    throw UsageFailure(
        fmt::format("VORLANE_VAULT is \"file\" or \"secret-service\", not \"{}\"", paths.unknownVault));
  }
  setUpProcess(paths, programPath);
  try {
    settings.deployment = Deployment::load(paths.deployment, paths.deploymentNamed);
  } catch (const Failure& failure) {
    throw UsageFailure(failure.description());
  }
  return settings;
}

}  // namespace vorlane
