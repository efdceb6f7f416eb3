#include "platform/linux/SecretServiceModule.h"

#include "base/ShellLog.h"
#include "platform/ProgramFolder.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace vorlane {
namespace {

constexpr char fileName[] = "libvorlane-secret-service.so";

/// Asking a bus that is not there might start a private one.
bool busIsAtHand() {
  const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') return true;
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || *runtime == '\0') return false;
  struct stat status{};
  return ::stat((std::string(runtime) + "/bus").c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/// Beside the running program, installed or in the build folder.
void* loadModule() {
  std::error_code error;
  const auto folder = programFolder();
  std::string reason = "it is missing";
  for (const auto& path : {folder.parent_path() / "lib/vorlane" / fileName, folder / fileName}) {
    if (!std::filesystem::exists(path, error)) continue;
    if (void* const module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) return module;
    if (const char* const text = ::dlerror()) reason = text;
  }
  shellLog(fmt::format("the keyring is not used, {}: {}", fileName, reason));
  return nullptr;
}

}  // namespace

std::unique_ptr<InterruptibleVault> loadSecretServiceVault() {
  if (!busIsAtHand()) return nullptr;
  static void* const module = loadModule();
  if (module == nullptr) return nullptr;
  void* const symbol = ::dlsym(module, "vorlaneMakeSecretServiceVault");
  if (symbol == nullptr) return nullptr;
  const auto make = reinterpret_cast<InterruptibleVault* (*)()>(symbol);
  return std::unique_ptr<InterruptibleVault>(make());
}

}  // namespace vorlane
