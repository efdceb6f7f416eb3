#pragma once

#include "base/paths/Paths.h"
#include "cloud/Deployment.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace vorlane::ctl {

struct Command;

/// What a command is run with.
struct Context {
  const Paths& paths;
  const Deployment& deployment;
  const Command& command;
  /// The words behind the command's name.
  Options::Words words;

  /// Reads the command's options out of the words and returns the others. Throws UsageFailure
  /// when they are fewer or more than the command takes.
  Options::Words operands(const Options& options = {}) const;
};

/// One command of vorlanectl.
struct Command {
  /// One word, or two with a blank between them.
  std::string_view name;
  /// The words that it takes, as the usage shows them.
  std::string_view usage;
  /// How many of these are no options.
  std::size_t fewest, most;
  /// Returns the text that is printed, without its newline. Throws UsageFailure and Failure.
  std::string (*run)(const Context& context);
};

/// Those that ask the agent or read what it has stored.
std::span<const Command> agentCommands();
/// The queue of explicit Cloud Saves, as the Sceneward application uses it, whether or not
/// an agent runs.
std::span<const Command> checkpointCommands();

/// Throws Failure where there is no container.
void requireContainer(const Paths& paths);

}  // namespace vorlane::ctl
