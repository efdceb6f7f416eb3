#include "auth/AuthError.h"

#include <fmt/format.h>

namespace vorlane {

AuthError AuthError::authorizeFailed(std::string detail) {
  auto description = "The identity provider refused the sign-in: " + detail;
  return {Kind::authorizeFailed, std::move(description), std::move(detail)};
}

AuthError AuthError::tokenExchangeFailed(std::string body) {
  // A body that is not quite a success may still hold tokens.
  return {Kind::tokenExchangeFailed, "The identity provider did not exchange the sign-in's code for tokens.",
          std::move(body)};
}

AuthError AuthError::keychain(vault::Status status) {
  return {Kind::keychain,
          fmt::format("The tokens could not be stored (keychain status {}).", status),
          {},
          status};
}

AuthError AuthError::notConfigured() {
  return {Kind::notConfigured, "The identity provider is not configured in this installation."};
}

AuthError AuthError::badRequest() {
  return {Kind::badRequest, "The address of the identity provider could not be built."};
}

AuthError AuthError::badCallback() {
  return {Kind::badCallback, "The answer of the sign-in could not be read."};
}

AuthError AuthError::stateMismatch() {
  return {Kind::stateMismatch, "The answer belongs to another sign-in."};
}

}  // namespace vorlane
