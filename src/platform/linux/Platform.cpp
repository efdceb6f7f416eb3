#include "platform/Platform.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "platform/HostName.h"
#include "platform/absent/AbsentUserDefaults.h"
#include "platform/absent/AbsentVault.h"
#include "platform/absent/LocalSignalCenter.h"
#include "platform/linux/AppGroupContainer.h"
#include "platform/linux/BoundedVault.h"
#include "platform/linux/CurlSession.h"
#include "platform/linux/FileSignalCenter.h"
#include "platform/linux/FileVault.h"
#include "platform/linux/JSONFileDefaults.h"
#include "platform/linux/SecretServiceModule.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

std::shared_ptr<UserDefaults> defaultsFor(const Paths& paths, const char* domain) {
  if (!paths.configHome) return std::make_shared<AbsentUserDefaults>();
  return makeUserDefaults(*paths.configHome, domain);
}

std::shared_ptr<SignalCenter> signalsFor(const PlatformSettings& settings) {
  if (!containerForAppGroup(settings.paths, appGroupIdentifier)) return std::make_shared<LocalSignalCenter>();
  return makeSignalCenter(settings.paths.signals(), settings.io, settings.concurrent);
}

}  // namespace

Platform systemPlatform(const PlatformSettings& settings) {
  return {
      .vault = makeVault(settings.paths),
      .signals = signalsFor(settings),
      .suiteDefaults = defaultsFor(settings.paths, appGroupIdentifier),
      .standardDefaults = defaultsFor(settings.paths, standardDefaultsDomain),
      .urlSession = makeURLSession(settings.caFile),
      .makeNetworkPathMonitor =
          [io = settings.io, online = settings.assumeOnline] { return makeNetworkPathMonitor(io, online); },
      .hostName = hostName};
}

std::optional<std::string> containerForAppGroup(const Paths& paths, std::string_view identifier) {
  if (identifier != appGroupIdentifier || !paths.container) return std::nullopt;
  prepareAppGroupContainer(*paths.container);
  return paths.container;
}

std::unique_ptr<UserDefaults> makeUserDefaults(const std::string& folder, const std::string& domain) {
  if (folder.empty() || domain.empty() || domain.find('/') != std::string::npos) {
    throw Failure(fmt::format("There is no place for the user defaults \"{}\".", domain));
  }
  return std::make_unique<JSONFileDefaults>(folder, domain);
}

std::unique_ptr<SecretVault> makeFileVault(const std::string& folder) {
  if (folder.empty()) throw Failure("There is no place for the file vault.");
  return std::make_unique<FileVault>(folder);
}

std::unique_ptr<SecretVault> makeSecretServiceVault() {
  auto slow = loadSecretServiceVault();
  if (!slow) return nullptr;
  auto vault = std::make_unique<BoundedVault>(std::move(slow), BoundedVault::Limits{}, &shellLog);
  if (!vault->usable()) return nullptr;
  return vault;
}

std::unique_ptr<SecretVault> makeVault(const Paths& paths) {
  if (paths.vault != VaultKind::file) {
    if (auto vault = makeSecretServiceVault()) return vault;
    if (paths.vault == VaultKind::secretService) throw Failure("No Secret Service answers on this desktop.");
  }
  if (!paths.container) return std::make_unique<AbsentVault>();
  return makeFileVault(paths.fileVault());
}

std::unique_ptr<SignalCenter> makeSignalCenter(const std::string& folder, Executor io, Executor handlers) {
  return std::make_unique<FileSignalCenter>(folder, io, handlers);
}

std::unique_ptr<URLSession> makeURLSession(std::optional<std::string> caFile) {
  return std::make_unique<CurlSession>(caFile);
}

}  // namespace vorlane
