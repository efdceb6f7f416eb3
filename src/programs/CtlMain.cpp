#include "base/Failure.h"
#include "programs/CtlCommands.h"
#include "shell/CommandLine.h"
#include "shell/ProcessSetup.h"

#include <fmt/format.h>

#include <cstdio>

namespace vorlane {
namespace {

constexpr char usage[] =
    "usage: vorlanectl [--container DIR] [--deployment FILE] "
    "status | token [--regenerate] | client-config --http | signal post|watch NAME";

int run(std::vector<std::string> arguments, const char* programPath) {
  const auto options = takePlaceOptions(arguments);
  if (arguments.empty()) throw UsageFailure(usage);
  const auto places = Places::resolve(options, processEnvironment());
  requireKnownVault(places);
  setUpProcess(places, programPath);
  endAtOnceOnTermination();
  ctl::Context context{
      .places = places, .deployment = {}, .arguments = {arguments.begin() + 1, arguments.end()}};
  try {
    context.deployment = Deployment::load(places.deployment, places.deploymentNamed);
  } catch (const Failure& failure) {
    throw UsageFailure(failure.description());
  }
  fmt::print("{}\n", ctl::run(arguments[0], context));
  return 0;
}

void complain(const std::string& text) {
  fmt::print(stderr, "vorlanectl: {}\n", text);
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  try {
    return vorlane::run({words + 1, words + count}, words[0]);
  } catch (const vorlane::UsageFailure& failure) {
    vorlane::complain(failure.description());
    return 2;
  } catch (const std::exception& error) {
    vorlane::complain(vorlane::describe(error));
    return 1;
  }
}
