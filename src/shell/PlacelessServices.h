#pragma once

#include "platform/SecretVault.h"
#include "platform/SignalCenter.h"
#include "platform/UserDefaults.h"

#include <memory>

/// What stands in for the services that need a place, on a machine where HOME and
/// every override are missing: the agent then still starts, and whoever needs the
/// place gets an error that says so.
namespace vorlane {

/// Signals within this process alone.
std::unique_ptr<SignalCenter> makeLocalSignals();
/// Nothing is set, and setting throws Failure.
std::unique_ptr<UserDefaults> makePlacelessDefaults();
/// Every operation ends in notAvailable.
std::unique_ptr<SecretVault> makePlacelessVault();

}  // namespace vorlane
