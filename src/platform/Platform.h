#pragma once

#include "base/paths/Paths.h"
#include "base/tasks/Task.h"
#include "platform/SecretVault.h"
#include "platform/SignalCenter.h"
#include "platform/URLSession.h"
#include "platform/UserDefaults.h"

#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// The folder that the app group's processes share, made with its parents, mode
/// 0700, when it is missing; one that is there is made 0700. Nothing when the platform
/// has none for that group. Throws Failure when it cannot be made, or belongs to another
/// user, naming both; nothing has been written in it then.
std::optional<std::string> containerForAppGroup(const Paths& paths, std::string_view identifier);

/// What this operating system offers, behind the interfaces of this folder. The
/// makers throw Failure naming the place that is missing or unusable.
std::unique_ptr<UserDefaults> makeUserDefaults(const std::string& folder, const std::string& domain);
/// Files below `folder`, which is made on the first write.
std::unique_ptr<SecretVault> makeFileVault(const std::string& folder);
/// The desktop's keyring over D-Bus; null when no Secret Service answers.
std::unique_ptr<SecretVault> makeSecretServiceVault();
/// By `paths.vault`: the one that is named, else the keyring when it answers,
/// else files.
std::unique_ptr<SecretVault> makeVault(const Paths& paths);
/// Signals in `folder`, which is made when missing. `io` watches it; what other
/// processes post is delivered on `handlers`, one signal after the other.
std::unique_ptr<SignalCenter> makeSignalCenter(const std::string& folder, Executor io, Executor handlers);
/// `caFile`: certificates trusted beside the system's.
std::unique_ptr<URLSession> makeURLSession(std::optional<std::string> caFile);

}  // namespace vorlane
