#pragma once

#include "programs/CtlCommands.h"

#include <string>

namespace vorlane::ctl {

/// The queue of explicit Cloud Saves, as the Sceneward application uses it, whether or not
/// an agent runs. Returns and throws as a command of run does.
std::string checkpoint(const Context& context);

}  // namespace vorlane::ctl
