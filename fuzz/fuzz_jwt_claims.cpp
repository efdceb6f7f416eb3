// Claims of tokens, whole and as the payload of one.
#include "auth/JWTClaims.h"
#include "base/Encodings.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vorlane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const auto& token : {std::string(text), "h." + base64URLEncoded(text) + ".s"}) {
    const auto claims = decodeClaims(token);
    // A payload that could be read can be written, and is then the same claims.
    if (claims && decodeClaims("." + base64URLEncoded(writeJSON(*claims)) + ".") != claims) std::abort();
    if (claims.has_value() != claimsLogLine(token).starts_with("token claims iss=")) std::abort();
    const AuthTokens tokens{token, token, {}, {}, {}};
    if (ownerOf(tokens) && !claims) std::abort();
    if (namesAdministrator(tokens, {{}, "host"}) && !claims) std::abort();
  }
  return 0;
}
