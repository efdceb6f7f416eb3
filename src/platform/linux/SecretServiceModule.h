#pragma once

#include "platform/linux/InterruptibleVault.h"

#include <memory>

namespace vorlane {

/// The desktop's keyring out of a shared object that is loaded at the first call,
/// so that programs without a desktop map none of its libraries; it stays loaded.
/// Null when there is no bus or the object cannot be loaded, which is logged.
std::unique_ptr<InterruptibleVault> loadSecretServiceVault();

}  // namespace vorlane
