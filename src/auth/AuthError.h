#pragma once

#include "base/Failure.h"
#include "platform/SecretVault.h"

#include <string>

namespace vorlane {

/// A failure of signing in or of storing the tokens.
class AuthError : public Failure {
 public:
  enum class Kind {
    authorizeFailed,      ///< the callback carried no code; detail: the provider's own words
    tokenExchangeFailed,  ///< the code exchange was refused; detail: the answer's body
    keychain,             ///< the vault could not be written; status tells why
    notConfigured,        ///< an identity setting is still a placeholder
    badRequest,           ///< an address of the provider could not be built
    badCallback,          ///< the callback could not be read
    stateMismatch,        ///< the callback belongs to another sign-in
  };

  static AuthError authorizeFailed(std::string detail);
  static AuthError tokenExchangeFailed(std::string body);
  static AuthError keychain(vault::Status status);
  static AuthError notConfigured();
  static AuthError badRequest();
  static AuthError badCallback();
  static AuthError stateMismatch();

  Kind kind() const noexcept { return kind_; }
  /// The payload of the two kinds that carry a text. It is not part of the
  /// description where it may hold a token.
  const std::string& detail() const noexcept { return detail_; }
  vault::Status status() const noexcept { return status_; }

 private:
  AuthError(Kind kind, std::string description, std::string detail = {}, vault::Status status = 0)
      : Failure(std::move(description)), kind_(kind), detail_(std::move(detail)), status_(status) {}

  Kind kind_;
  std::string detail_;
  vault::Status status_;
};

}  // namespace vorlane
