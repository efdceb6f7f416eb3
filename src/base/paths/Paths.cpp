#include "base/paths/Paths.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace vorlane {
namespace {

std::string absolute(const std::string& path) {
  std::error_code ignored;
  const auto full = std::filesystem::absolute(path, ignored).lexically_normal();
  auto text = ignored ? path : full.string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

/// An XDG base folder: the variable when it holds an absolute path (others are
/// to be ignored), else the folder below HOME, else nothing.
std::optional<std::string> base(const Environment& environment, const char* variable, const char* belowHome) {
  if (auto path = environment(variable); path && path->front() == '/') return absolute(*path);
  if (auto home = environment("HOME")) return absolute(*home) + "/" + belowHome;
  return std::nullopt;
}

std::optional<std::string> below(std::optional<std::string> folder, const std::string& name) {
  if (folder) *folder += "/" + name;
  return folder;
}

}  // namespace

Environment processEnvironment() {
  return [](const char* name) -> std::optional<std::string> {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return value;
  };
}

void PathOptions::addTo(Options& options) {
  options.value("--container", container).value("--deployment", deployment);
}

Paths Paths::resolve(const PathOptions& options, const Environment& environment) {
  Paths paths;
  const auto named = options.container ? options.container : environment("VORLANE_CONTAINER");
  paths.containerNamed = named.has_value();
  paths.container = named ? std::optional(absolute(*named))
                          : below(base(environment, "XDG_DATA_HOME", ".local/share"), appGroupIdentifier);

  if (const auto config = environment("VORLANE_CONFIG_HOME")) {
    paths.configHome = absolute(*config);
  } else if (named) {
    paths.configHome = *paths.container + "/config";
  } else {
    paths.configHome = below(base(environment, "XDG_CONFIG_HOME", ".config"), "vorlane");
  }

  paths.renderCache = below(base(environment, "XDG_CACHE_HOME", ".cache"), "com.vorlane.agent/renders");
  if (const auto home = environment("HOME")) {
    paths.launcherPointer = absolute(*home) + "/.config/vorlane/container";
  }
  paths.shellLog = environment("VORLANE_SHELL_LOG").value_or("/tmp/vorlane-shell.log");
  paths.shellLogInState = below(base(environment, "XDG_STATE_HOME", ".local/state"), "vorlane/shell.log");

  const auto deployment = options.deployment ? options.deployment : environment("VORLANE_DEPLOYMENT");
  paths.deploymentNamed = deployment.has_value();
  paths.deployment = deployment ? absolute(*deployment) : "/etc/vorlane/deployment.json";

  const auto vault = environment("VORLANE_VAULT");
  if (!vault) {
    paths.vault = named ? VaultKind::file : VaultKind::automatic;
  } else if (*vault == "file") {
    paths.vault = VaultKind::file;
  } else if (*vault == "secret-service") {
    paths.vault = VaultKind::secretService;
  } else {
    paths.unknownVault = *vault;
  }
  return paths;
}

}  // namespace vorlane
