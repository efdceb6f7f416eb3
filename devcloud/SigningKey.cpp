#include "devcloud/SigningKey.h"

#include "base/Encodings.h"
#include "base/SHA256.h"
#include "devcloud/Files.h"
#include "devcloud/OpenSSL.h"

#include <openssl/core_names.h>
#include <openssl/err.h>

#include <array>
#include <tuple>
#include <vector>

namespace vorlane::devcloud {
namespace {

using namespace openssl;

/// Each of the two halves of an ES256 signature, and of a public point on P-256.
constexpr std::size_t halfLength = 32;

const unsigned char* bytes(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::optional<std::string> base64URLDecoded(std::string_view text) {
  std::string standard(text);
  for (char& letter : standard) {
    if (letter == '+' || letter == '/' || letter == '=') return std::nullopt;
    if (letter == '-') letter = '+';
    if (letter == '_') letter = '/';
  }
  standard.append((4 - standard.size() % 4) % 4, '=');
  return base64Decoded(standard);
}

/// OpenSSL speaks DER, a token holds the two numbers one after the other.
std::string signatureFromDER(const std::vector<unsigned char>& der) {
  const unsigned char* cursor = der.data();
  const Signature signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())));
  require(signature != nullptr, "reading a signature");
  std::array<unsigned char, 2 * halfLength> halves{};
  const int half = static_cast<int>(halfLength);
  require(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), halves.data(), half) == half &&
              BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), halves.data() + halfLength, half) == half,
          "reading a signature");
  return {halves.begin(), halves.end()};
}

std::vector<unsigned char> derFromSignature(std::string_view halves) {
  const int half = static_cast<int>(halfLength);
  BigNumber r(BN_bin2bn(bytes(halves), half, nullptr));
  BigNumber s(BN_bin2bn(bytes(halves.substr(halfLength)), half, nullptr));
  const Signature signature(ECDSA_SIG_new());
  require(r && s && signature && ECDSA_SIG_set0(signature.get(), r.get(), s.get()) == 1,
          "reading a signature");
  // The signature owns both numbers from here on.
  std::ignore = r.release();
  std::ignore = s.release();
  std::vector<unsigned char> der(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
  unsigned char* cursor = der.data();
  i2d_ECDSA_SIG(signature.get(), &cursor);
  return der;
}

JSONMap jwkOf(EVP_PKEY* key) {
  std::array<unsigned char, 1 + 2 * halfLength> point{};
  std::size_t length = 0;
  require(EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                          &length) == 1 &&
              length == point.size(),
          "reading the public key");
  const std::string x(point.begin() + 1, point.begin() + 1 + halfLength);
  const std::string y(point.begin() + 1 + halfLength, point.end());
  return {{"kty", "EC"},  {"crv", "P-256"}, {"x", base64URLEncoded(x)}, {"y", base64URLEncoded(y)},
          {"use", "sig"}, {"alg", "ES256"}};
}

}  // namespace

struct SigningKey::Key {
  openssl::Key key;
  std::string kid;
};

SigningKey::SigningKey(const std::filesystem::path& file) : key_(std::make_unique<Key>()) {
  if (const auto pem = readFile(file)) {
    key_->key = keyFromPem(*pem);
    if (!key_->key || EVP_PKEY_is_a(key_->key.get(), "EC") != 1) {
      throw Failure(file.string() + " holds no EC private key");
    }
  } else {
    key_->key = newKey();
    replaceFile(file, privatePem(key_->key.get()), 0600);
  }
  key_->kid = sha256Hex(writeJSON(jwkOf(key_->key.get()))).substr(0, 16);
}

SigningKey::~SigningKey() = default;

std::string SigningKey::sign(const JSONMap& claims) const {
  const std::string head = writeJSON(JSONMap{{"alg", "ES256"}, {"kid", key_->kid}, {"typ", "JWT"}});
  const std::string text = base64URLEncoded(head) + "." + base64URLEncoded(writeJSON(claims));
  const DigestContext context(EVP_MD_CTX_new());
  std::size_t length = 0;
  require(context &&
              EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_->key.get()) == 1 &&
              EVP_DigestSign(context.get(), nullptr, &length, bytes(text), text.size()) == 1,
          "signing a token");
  std::vector<unsigned char> der(length);
  require(EVP_DigestSign(context.get(), der.data(), &length, bytes(text), text.size()) == 1,
          "signing a token");
  der.resize(length);
  return text + "." + base64URLEncoded(signatureFromDER(der));
}

std::optional<JSONMap> SigningKey::verify(std::string_view token) const {
  const std::size_t first = token.find('.');
  const std::size_t last = token.rfind('.');
  if (first == std::string_view::npos || first == last) return std::nullopt;
  const auto signature = base64URLDecoded(token.substr(last + 1));
  const auto payload = base64URLDecoded(token.substr(first + 1, last - first - 1));
  if (!signature || signature->size() != 2 * halfLength || !payload) return std::nullopt;

  const auto der = derFromSignature(*signature);
  const std::string_view text = token.substr(0, last);
  const DigestContext context(EVP_MD_CTX_new());
  const bool ours =
      context && EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key_->key.get()) == 1 &&
      EVP_DigestVerify(context.get(), der.data(), der.size(), bytes(text), text.size()) == 1;
  ERR_clear_error();
  if (!ours) return std::nullopt;
  return parseJSONMap(*payload);
}

JSONMap SigningKey::publicJWK() const {
  JSONMap jwk = jwkOf(key_->key.get());
  jwk["kid"] = key_->kid;
  return jwk;
}

}  // namespace vorlane::devcloud
