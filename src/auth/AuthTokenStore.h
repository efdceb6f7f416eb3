#pragma once

#include "auth/AuthAccountEpoch.h"
#include "auth/AuthTokens.h"
#include "base/JSON.h"
#include "base/ShellLog.h"
#include "platform/SecretVault.h"
#include "platform/SignalCenter.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vorlane {

/// A stored record as it was read, with what is asked of it again and again.
struct StoredTokens {
  AuthTokens tokens;
  /// The claims of the id token, empty when it has none that can be read.
  JSONMap idClaims;
  /// The string claim "sub" of the id token.
  std::optional<std::string> owner;
};

/// The tokens in the vault, which is the one source of truth for every process of
/// the suite. A record is kept decoded for as long as the vault's stamp says that
/// the item is unchanged; each use asks for the stamp. Callable from any thread.
/// A call may wait for the vault, a few seconds at most.
class AuthTokenStore {
 public:
  /// `epoch` is taken so that it observes before owners are compared here: a
  /// process can then never miss its own change. The others have to outlive the store.
  AuthTokenStore(SecretVault& vault, SignalCenter& signals, std::shared_ptr<const AuthAccountEpoch> epoch,
                 Log log);

  /// The stored record; null when there is none, it cannot be read or it cannot
  /// be decoded, each of which counts as signed out. Never fails.
  std::shared_ptr<const StoredTokens> load() const;

  /// Replaces the stored record and announces a change of owner. Throws
  /// AuthError (keychain) when the vault refuses, or the encoding's failure; the
  /// earlier record then stays.
  void save(const AuthTokens& tokens);

  /// Removes the stored record and announces a change of owner. Never fails.
  void clear();

 private:
  std::shared_ptr<const StoredTokens> read(std::optional<std::string> stamp, std::uint64_t writes) const;
  void forget();
  void compareOwners(const std::shared_ptr<const StoredTokens>& before,
                     const std::optional<std::string>& owner);

  SecretVault& vault_;
  SignalCenter& signals_;
  const std::shared_ptr<const AuthAccountEpoch> epoch_;
  const Log log_;

  /// Held from the reading of the earlier record until the write is done, so that
  /// each writer compares with what it really replaced.
  std::mutex writing_;

  /// Guards what follows; never held while the vault is asked.
  mutable std::mutex lock_;
  mutable std::optional<std::string> stamp_;
  mutable std::shared_ptr<const StoredTokens> kept_;
  /// Counts the writes of this process. A read that began before a write may
  /// bring the earlier record and is then not kept.
  std::uint64_t writes_ = 0;
};

}  // namespace vorlane
