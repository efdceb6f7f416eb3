#pragma once

#include "base/paths/Paths.h"
#include "base/tasks/Task.h"
#include "platform/NetworkPathMonitor.h"
#include "platform/SecretVault.h"
#include "platform/SignalCenter.h"
#include "platform/URLSession.h"
#include "platform/UserDefaults.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// What the agent needs of the operating system, as one value. No member is ever null: what
/// this machine lacks is stood in for by what is in absent/. Copies share the services.
struct Platform {
  std::shared_ptr<SecretVault> vault;
  /// Between processes; within this one alone when there is no container.
  std::shared_ptr<SignalCenter> signals;
  /// The domain that the suite shares, and the agent's own.
  std::shared_ptr<UserDefaults> suiteDefaults;
  std::shared_ptr<UserDefaults> standardDefaults;
  std::shared_ptr<URLSession> urlSession;
  /// A monitor of its own for each caller.
  std::function<std::unique_ptr<NetworkPathMonitor>()> makeNetworkPathMonitor;
  /// What the person calls this computer, as the desktop shows it; else its name in the
  /// network. Nothing when the system knows neither.
  std::function<std::optional<std::string>()> hostName;
};

struct PlatformSettings {
  Paths paths;
  /// Certificates trusted beside the system's; none for those alone.
  std::optional<std::string> caFile;
  /// Count the network path as satisfied whatever the routes say.
  bool assumeOnline = false;
  /// Carries descriptors and timers; nothing that blocks.
  Executor io;
  /// Runs the observers of other processes' signals, one after the other.
  Executor concurrent;
};

/// The platform of this machine. The executors outlive it. Throws Failure naming the path
/// that is there and cannot be used, or the keyring that was asked for and does not answer.
Platform systemPlatform(const PlatformSettings& settings);

/// The folder that the app group's processes share, made with its parents, mode
/// 0700, when it is missing; one that is there is made 0700. Nothing when the platform
/// has none for that group. Throws Failure when it cannot be made, or belongs to another
/// user, naming both; nothing has been written in it then.
std::optional<std::string> containerForAppGroup(const Paths& paths, std::string_view identifier);

/// Single services of this system, for what needs one alone. The makers throw Failure naming
/// the path that is missing or unusable.
std::unique_ptr<UserDefaults> makeUserDefaults(const std::string& folder, const std::string& domain);
/// Files below `folder`, which is made on the first write.
std::unique_ptr<SecretVault> makeFileVault(const std::string& folder);
/// The desktop's keyring over D-Bus; null when no Secret Service answers.
std::unique_ptr<SecretVault> makeSecretServiceVault();
/// By `paths.vault`: the one that is named, else the keyring when it answers, else
/// files. Without a container there are no files, and an AbsentVault takes their place. Throws
/// Failure when the keyring alone was asked for and does not answer.
std::unique_ptr<SecretVault> makeVault(const Paths& paths);
/// `caFile`: certificates trusted beside the system's.
std::unique_ptr<URLSession> makeURLSession(std::optional<std::string> caFile);
/// Signals in `folder`, which is made when missing. `io` watches it; what other
/// processes post is delivered on `handlers`, one signal after the other.
std::unique_ptr<SignalCenter> makeSignalCenter(const std::string& folder, Executor io, Executor handlers);

}  // namespace vorlane
