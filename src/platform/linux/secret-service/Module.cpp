#include "platform/linux/secret-service/SecretServiceVault.h"

#include <new>

/// The one entry of the shared object, see SecretServiceModule. Null when there is
/// no memory for it; the caller owns what comes back.
extern "C" __attribute__((visibility("default"))) vorlane::InterruptibleVault*
vorlaneMakeSecretServiceVault() {
  return new (std::nothrow) vorlane::SecretServiceVault();
}
