#include "devcloud/OpenSSL.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>

namespace vorlane::devcloud::openssl {

void require(bool good, const char* step) {
  if (good) return;
  std::array<char, 256> reason{};
  ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
  ERR_clear_error();
  throw Failure(std::string(step) + ": " + reason.data());
}

Key newKey() {
  Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  require(key != nullptr, "making a key");
  return key;
}

std::string privatePem(EVP_PKEY* key) {
  const Memory out = memory();
  require(PEM_write_bio_PKCS8PrivateKey(out.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "writing a key");
  return contents(out.get());
}

Key keyFromPem(std::string_view pem) {
  const Memory in = memory(pem);
  Key key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  return key;
}

Memory memory(std::string_view bytes) {
  Memory memory(BIO_new(BIO_s_mem()));
  require(memory != nullptr, "allocating");
  if (!bytes.empty()) {
    require(BIO_write(memory.get(), bytes.data(), static_cast<int>(bytes.size())) > 0, "copying");
  }
  return memory;
}

std::string contents(BIO* memory) {
  std::string out(BIO_ctrl_pending(memory), '\0');
  const int count = BIO_read(memory, out.data(), static_cast<int>(out.size()));
  out.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return out;
}

}  // namespace vorlane::devcloud::openssl
