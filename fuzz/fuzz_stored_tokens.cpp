// The stored record and the answers of the token endpoint.
#include "auth/AuthRefreshClient.h"
#include "base/JSON.h"
#include "base/Text.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vorlane;
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    // What could be read can be stored and read again.
    const auto stored = AuthTokens::fromStored(text);
    const auto again = AuthTokens::fromStored(stored.storedText());
    if (again.credentials() != stored.credentials() || again.tokenType != stored.tokenType) std::abort();
    // Within some centuries a double holds every microsecond; far dates may move a little.
    const auto distance = std::chrono::abs(again.expiresAt - stored.expiresAt);
    const bool near = std::abs(secondsSince2001(stored.expiresAt)) < 4e9;
    if (distance > (near ? std::chrono::microseconds(0) : std::chrono::microseconds(100))) std::abort();
  } catch (const AuthDecodingFailure&) {
  }
  const AuthTokens stored{"SECRET-A", "SECRET-I", "SECRET-R", Date(), "Bearer"};
  try {
    AuthTokens::fromResponse(carriedForward(text, stored), Date()).storedText();
  } catch (const AuthDecodingFailure& failure) {
    if (failure.description().find("SECRET") != std::string::npos) std::abort();
  }
  const int status = size == 0 ? 0 : data[0] * 3;
  const auto outcome = classifyRefusal(status, text, stored);
  if (std::holds_alternative<refresh_outcome::Rejected>(outcome) && (status < 400 || status > 499))
    std::abort();
  if (const auto* transient = std::get_if<refresh_outcome::Transient>(&outcome)) {
    if (!isValidUTF8(transient->reason)) std::abort();
    if (transient->reason.find("SECRET-R") != std::string::npos) std::abort();
  }
  return 0;
}
