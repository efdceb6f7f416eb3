#pragma once

#include "base/Failure.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>
#include <string_view>

/// Owners for OpenSSL's objects and the few steps that several files share.
/// For the .cpp files of this folder; no public header includes it.
namespace vorlane::devcloud::openssl {

template <auto free>
struct Freed {
  template <class T>
  void operator()(T* object) const {
    free(object);
  }
};

using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using Memory = std::unique_ptr<BIO, Freed<BIO_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Freed<EVP_MD_CTX_free>>;
using Signature = std::unique_ptr<ECDSA_SIG, Freed<ECDSA_SIG_free>>;
using BigNumber = std::unique_ptr<BIGNUM, Freed<BN_free>>;

/// Throws Failure with OpenSSL's own reason unless `good`.
void require(bool good, const char* step);

/// A new private key on the curve P-256.
Key newKey();
std::string privatePem(EVP_PKEY* key);
/// Null when the text is no private key.
Key keyFromPem(std::string_view pem);

Memory memory(std::string_view bytes = {});
std::string contents(BIO* memory);

}  // namespace vorlane::devcloud::openssl
