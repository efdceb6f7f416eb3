#pragma once

#include "base/JSON.h"
#include "base/tasks/Task.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace vorlane {

/// Tells the caller of a command about a step of its work. Callable from any thread; never
/// waits and never throws. Steps that a slow caller has not taken are dropped from the 256th on.
using Progress = std::function<void(JSONMap event)>;

/// Carries out one command and gives its answer; what it throws is the refusal. Starts on
/// a strand of the concurrent executor, is cancelled when its caller goes, and hops to the
/// main executor for what lives there.
using ControlCommand = std::function<Task<JSONMap>(JSONMap request, Progress progress)>;

/// The commands that the agent takes, by name. Filled before the server starts.
class ControlCommands {
 public:
  /// A name has one command; the first one stays.
  void add(std::string name, ControlCommand command) {
    commands_.emplace(std::move(name), std::move(command));
  }
  /// Null for a name that nobody took.
  const ControlCommand* find(std::string_view name) const {
    const auto found = commands_.find(name);
    return found == commands_.end() ? nullptr : &found->second;
  }

 private:
  std::map<std::string, ControlCommand, std::less<>> commands_;
};

}  // namespace vorlane
