#include "base/SHA256.h"

#include "base/Encodings.h"
#include "base/Failure.h"

#include <openssl/evp.h>

#include <array>

namespace vorlane {
namespace {

void require(int answer) {
  if (answer != 1) throw Failure("SHA-256 is not available");
}

}  // namespace

std::string sha256Hex(std::string_view bytes) {
  SHA256 digest;
  digest.add(bytes);
  return digest.finish();
}

void SHA256::Free::operator()(evp_md_ctx_st* context) const noexcept {
  EVP_MD_CTX_free(context);
}

SHA256::SHA256() : context_(EVP_MD_CTX_new()) {
  require(context_ == nullptr ? 0 : EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr));
}

void SHA256::add(std::string_view bytes) {
  require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

std::string SHA256::finish() {
  std::array<unsigned char, 32> digest{};
  unsigned length = 0;
  require(EVP_DigestFinal_ex(context_.get(), digest.data(), &length));
  return hexText({reinterpret_cast<const char*>(digest.data()), length});
}

}  // namespace vorlane
