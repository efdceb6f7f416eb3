#include "base/places/Places.h"

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

Places Places::resolve(const PlaceOptions& options, const Environment& environment) {
  Places places;
  const auto named = options.container ? options.container : environment("VORLANE_CONTAINER");
  places.containerNamed = named.has_value();
  places.container = named ? std::optional(absolute(*named))
                           : below(base(environment, "XDG_DATA_HOME", ".local/share"), appGroupIdentifier);

  if (const auto config = environment("VORLANE_CONFIG_HOME")) {
    places.configHome = absolute(*config);
  } else if (named) {
    places.configHome = *places.container + "/config";
  } else {
    places.configHome = below(base(environment, "XDG_CONFIG_HOME", ".config"), "vorlane");
  }

  places.renderCache = below(base(environment, "XDG_CACHE_HOME", ".cache"), "com.vorlane.agent/renders");
  if (const auto home = environment("HOME")) {
    places.launcherPointer = absolute(*home) + "/.config/vorlane/container";
  }
  places.shellLog = environment("VORLANE_SHELL_LOG").value_or("/tmp/vorlane-shell.log");

  const auto deployment = options.deployment ? options.deployment : environment("VORLANE_DEPLOYMENT");
  places.deploymentNamed = deployment.has_value();
  places.deployment = deployment ? absolute(*deployment) : "/etc/vorlane/deployment.json";

  const auto vault = environment("VORLANE_VAULT");
  if (!vault) {
    places.vault = named ? VaultKind::file : VaultKind::automatic;
  } else if (*vault == "file") {
    places.vault = VaultKind::file;
  } else if (*vault == "secret-service") {
    places.vault = VaultKind::secretService;
  } else {
    places.unknownVault = *vault;
  }
  return places;
}

}  // namespace vorlane
