#pragma once

#include "base/ShellLog.h"
#include "platform/SecretVault.h"
#include "platform/URLSession.h"
#include "platform/UserDefaults.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Tells the cloud one computer from another: a random id that all programs of the
/// suite share by the vault, mirrored in the user defaults in case the vault fails, and
/// a label for people. Each is worked out once, at its first use. Callable from any
/// thread; a first use may wait for the vault.
class DeviceIdentity {
 public:
  using HostName = std::function<std::optional<std::string>()>;

  DeviceIdentity(std::shared_ptr<SecretVault> vault, std::shared_ptr<UserDefaults> defaults,
                 HostName hostName, Log log);

  /// A UUID. Never fails: without any store it holds for this process.
  const std::string& id() const;
  /// The computer's name in plain ASCII, as a header can carry it; nothing when
  /// nothing of it is left.
  const std::optional<std::string>& label() const;
  /// Sets the device headers on a request.
  void apply(URLRequest& request) const;

  /// `name` with typographic quotes made plain, every run of other characters than
  /// printable ASCII made one blank, 64 characters at most; nothing when it is empty then.
  static std::optional<std::string> cleanedLabel(std::string_view name);

 private:
  std::string workOutID() const;
  std::optional<std::string> shared() const;
  std::string mirrored(std::string id) const;

  const std::shared_ptr<SecretVault> vault_;
  const std::shared_ptr<UserDefaults> defaults_;
  const HostName hostName_;
  const Log log_;
  mutable std::once_flag idOnce_, labelOnce_;
  mutable std::string id_;
  mutable std::optional<std::string> label_;
};

}  // namespace vorlane
