#include "base/Failure.h"
#include "platform/Platform.h"
#include "programs/CtlCommand.h"
#include "shell/Program.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace vorlane {
namespace ctl {

Options::Words Context::operands(const Options& options) const {
  auto words_ = options.parse(words);
  if (words_.size() > command.most) throw UsageFailure("unexpected word " + words_[command.most]);
  if (words_.size() < command.fewest)
    throw UsageFailure(fmt::format("{} takes {}", command.name, command.usage));
  return words_;
}

void requireContainer(const Paths& paths) {
  if (!containerForAppGroup(paths, appGroupIdentifier)) {
    throw Failure(fmt::format("App Group container unavailable for {}: HOME is not set", appGroupIdentifier));
  }
}

namespace {

const std::vector<Command>& commands() {
  static const auto all = [] {
    std::vector<Command> table;
    for (const auto part : {agentCommands(), checkpointCommands()}) {
      table.insert(table.end(), part.begin(), part.end());
    }
    return table;
  }();
  return all;
}

std::string usage() {
  std::string text = "usage: vorlanectl [--container DIR] [--deployment FILE] ";
  for (const auto& command : commands()) {
    if (&command != commands().data()) text += " | ";
    text += command.name;
    if (!command.usage.empty()) text.append(" ").append(command.usage);
  }
  return text;
}

/// The command that the words begin with. Throws UsageFailure when there is none.
const Command& commandNamedBy(const Options::Words& words) {
  const auto two = words.size() < 2 ? words[0] : words[0] + " " + words[1];
  std::string known;
  for (const auto& command : commands()) {
    if (command.name == words[0] || command.name == two) return command;
    if (command.name.starts_with(words[0] + " "))
      known.append(known.empty() ? "" : ", ").append(command.name);
  }
  if (known.empty()) throw UsageFailure("unknown command " + words[0]);
  throw UsageFailure(fmt::format("unknown command {}; there are {}", two, known));
}

}  // namespace
}  // namespace ctl

namespace {

int run(const Options::Words& arguments, const char* programPath) {
  PathOptions paths;
  Options options;
  paths.addTo(options);
  const auto words = options.parseLeading(arguments);
  if (words.empty()) throw UsageFailure(ctl::usage());
  const auto& command = ctl::commandNamedBy(words);
  const auto settings = setUpProgram(paths, programPath);
  const auto own = static_cast<std::ptrdiff_t>(1 + std::ranges::count(command.name, ' '));
  const auto answer = command.run({.paths = settings.paths,
                                   .deployment = settings.deployment,
                                   .command = command,
                                   .words = {words.begin() + own, words.end()}});
  std::fputs((answer + "\n").c_str(), stdout);
  if (std::fflush(stdout) != 0) throw Failure(withErrno("the answer could not be written", errno));
  return 0;
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::runProgram("vorlanectl", count, words, vorlane::run);
}
