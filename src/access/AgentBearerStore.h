#pragma once

#include "access/BearerSecretStorage.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane {

/// Owns the secret that guards the HTTP endpoint: 64 lower-case hexadecimal
/// characters, made on this machine. Callable from any thread. The secret is
/// asked for at every request, so the value that was read is kept and read again
/// only when the storage's stamp has moved.
class AgentBearerStore {
 public:
  explicit AgentBearerStore(std::shared_ptr<BearerSecretStorage> storage);

  /// The secret, made when there is none. Callers that come at once, from other
  /// processes too, get the same one. Throws what the storage throws.
  std::string currentToken();
  /// Replaces the secret. Throws what the storage throws.
  void regenerate();
  /// Compares in constant time. False when there is no secret, or it cannot be read.
  bool validate(std::string_view token);

 private:
  struct Kept {
    std::string stamp;
    std::optional<std::string> secret;
  };

  /// The stored secret; an empty one counts as none.
  std::optional<std::string> stored();
  void forget();

  std::shared_ptr<BearerSecretStorage> storage_;
  /// One maker at a time; held while the storage works.
  std::mutex making_;
  std::mutex lock_;
  std::optional<Kept> kept_;
};

}  // namespace vorlane
