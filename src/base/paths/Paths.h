#pragma once

#include "base/paths/Options.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Where files lie. This library has no dependency but the standard library, so
/// that the stdio launcher, which links nothing else, stays small.
namespace vorlane {

/// The app group whose container holds the database, sockets and signals.
inline constexpr char appGroupIdentifier[] = "group.com.vorlane.shared";
/// The domain of the agent's own user defaults.
inline constexpr char standardDefaultsDomain[] = "com.vorlane.agent";

/// Reads an environment variable; an empty value counts as unset.
using Environment = std::function<std::optional<std::string>(const char* name)>;
Environment processEnvironment();

/// The paths that a program got on its command line.
struct PathOptions {
  std::optional<std::string> container;
  std::optional<std::string> deployment;

  /// Adds "--container DIR" and "--deployment FILE" to the options of a program.
  void addTo(Options& options);
};

enum class VaultKind {
  automatic,      ///< Secret Service when one answers, else files
  file,           ///< files below the container
  secretService,  ///< the Secret Service alone
};

/// The resolved paths, all absolute where the given paths were. Nothing is
/// made or looked at here.
struct Paths {
  /// The app-group container; absent when HOME and every override are missing.
  std::optional<std::string> container;
  /// True when the container was named by option or variable: it is then a
  /// world of its own, with its secrets and user defaults inside.
  bool containerNamed = false;
  /// The folder of the user defaults; absent like the container.
  std::optional<std::string> configHome;
  /// The folder of rendered clips; absent like the container.
  std::optional<std::string> renderCache;
  /// The file that names the container of the last agent to launchers; absent without HOME.
  std::optional<std::string> launcherPointer;
  std::string shellLog;
  /// Takes the log where `shellLog` is not the person's own file; absent like the container.
  std::optional<std::string> shellLogInState;
  std::string deployment;
  bool deploymentNamed = false;
  VaultKind vault = VaultKind::automatic;
  /// The text of VORLANE_VAULT when it is none of the known words, else empty.
  std::string unknownVault;

  static Paths resolve(const PathOptions& options, const Environment& environment);

  // Names inside the container; to be asked only when there is one.
  std::string database() const { return *container + "/Vorlane.sqlite"; }
  std::string assistantsSocket() const { return *container + "/mcp.sock"; }
  std::string controlSocket() const { return *container + "/agent.sock"; }
  std::string instanceLock() const { return *container + "/agent.lock"; }
  std::string signals() const { return *container + "/signals"; }
  std::string fileVault() const { return *container + "/vault"; }
};

}  // namespace vorlane
