#include "base/Failure.h"
#include "programs/CtlCommands.h"
#include "shell/CommandLine.h"
#include "shell/ProcessSetup.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>

namespace vorlane {
namespace {

constexpr char usage[] =
    "usage: vorlanectl [--container DIR] [--deployment FILE] "
    "status | token [--regenerate] | client-config [--http] | signal post|watch NAME | "
    "checkpoint enqueue|cancel|restore|erase|list --owner O [--project P] [FILE | OPERATION ...]";

int run(std::vector<std::string> arguments, const char* programPath) {
  const auto options = takePathOptions(arguments);
  if (arguments.empty()) throw UsageFailure(usage);
  const auto paths = Paths::resolve(options, processEnvironment());
  requireKnownVault(paths);
  setUpProcess(paths, programPath);
  ctl::Context context{
      .paths = paths, .deployment = {}, .arguments = {arguments.begin() + 1, arguments.end()}};
  try {
    context.deployment = Deployment::load(paths.deployment, paths.deploymentNamed);
  } catch (const Failure& failure) {
    throw UsageFailure(failure.description());
  }
  std::fputs((ctl::run(arguments[0], context) + "\n").c_str(), stdout);
  if (std::fflush(stdout) != 0) throw Failure(withErrno("the answer could not be written", errno));
  return 0;
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::runProgram("vorlanectl", count, words, vorlane::run);
}
