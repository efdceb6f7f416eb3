#pragma once

#include "base/JSON.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vorlane::devcloud {

/// The identity provider's key: signs JSON Web Tokens with ES256 and reads
/// back the ones that it signed.
class SigningKey {
 public:
  /// The key kept in `file`, or a new one, written there with mode 0600 when
  /// there is none. Throws Failure, also for a file that holds no such key.
  explicit SigningKey(const std::filesystem::path& file);
  ~SigningKey();
  SigningKey(const SigningKey&) = delete;
  SigningKey& operator=(const SigningKey&) = delete;

  /// The compact form of a token with these claims.
  std::string sign(const JSONMap& claims) const;
  /// The claims of a token whose signature is ours, else nothing. Looks at no date.
  std::optional<JSONMap> verify(std::string_view token) const;
  /// The public key as a JWK, with the "kid" that our tokens name.
  JSONMap publicJWK() const;

 private:
  struct Key;
  std::unique_ptr<Key> key_;
};

}  // namespace vorlane::devcloud
