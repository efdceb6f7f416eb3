#include "devcloud/Certificates.h"

#include "base/SecureRandom.h"
#include "devcloud/Files.h"
#include "devcloud/OpenSSL.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <chrono>
#include <initializer_list>
#include <optional>

namespace vorlane::devcloud {
namespace {

using namespace openssl;

constexpr auto validity = std::chrono::days(820);

struct ExtensionText {
  int nid;
  const char* value;
};

constexpr ExtensionText authorityExtensions[] = {
    {NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
    {NID_key_usage, "critical,keyCertSign,cRLSign"},
    {NID_subject_key_identifier, "hash"},
    {NID_name_constraints, "critical,permitted;IP:127.0.0.1/255.255.255.255,permitted;DNS:localhost"},
};

constexpr ExtensionText serverExtensions[] = {
    {NID_basic_constraints, "critical,CA:FALSE"},
    {NID_key_usage, "critical,digitalSignature"},
    {NID_ext_key_usage, "serverAuth"},
    {NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost"},
    {NID_subject_key_identifier, "hash"},
    {NID_authority_key_identifier, "keyid"},
};

std::time_t seconds(Date date) {
  return std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(date));
}

void setName(X509_NAME* name, const char* commonName) {
  for (const auto& [field, text] : {std::pair("O", "Vorlane local cloud"), std::pair("CN", commonName)}) {
    const std::string value = text;
    require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(value.data()),
                                       static_cast<int>(value.size()), -1, 0) == 1,
            "naming a certificate");
  }
}

void setSerial(X509* certificate) {
  std::string bytes = secureRandomBytes(16);
  bytes[0] = static_cast<char>((static_cast<unsigned char>(bytes[0]) & 0x3FU) | 0x40U);
  const BigNumber number(BN_bin2bn(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<int>(bytes.size()), nullptr));
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
          "numbering a certificate");
}

/// A certificate for `key`, signed by `issuer` with `issuerKey`; by itself when `issuer` is null.
template <std::size_t count>
Certificate makeCertificate(EVP_PKEY* key, const char* commonName, const ExtensionText (&extensions)[count],
                            X509* issuer, EVP_PKEY* issuerKey, Date now) {
  Certificate certificate(X509_new());
  X509* const made = certificate.get();
  require(made && X509_set_version(made, 2) == 1, "making a certificate");
  setSerial(made);
  // A clock that is set back a little must not make it invalid.
  require(ASN1_TIME_set(X509_getm_notBefore(made), seconds(now - std::chrono::days(1))) &&
              ASN1_TIME_set(X509_getm_notAfter(made), seconds(now + validity)),
          "dating a certificate");
  setName(X509_get_subject_name(made), commonName);
  X509* const signer = issuer ? issuer : made;
  require(X509_set_issuer_name(made, X509_get_subject_name(signer)) == 1 && X509_set_pubkey(made, key) == 1,
          "making a certificate");
  X509V3_CTX context{};
  X509V3_set_ctx(&context, signer, made, nullptr, nullptr, 0);
  for (const ExtensionText& text : extensions) {
    const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, text.nid, text.value));
    require(extension && X509_add_ext(made, extension.get(), -1) == 1, "extending a certificate");
  }
  require(X509_sign(made, issuerKey, EVP_sha256()) > 0, "signing a certificate");
  return certificate;
}

std::string pem(X509* certificate) {
  const Memory out = memory();
  require(PEM_write_bio_X509(out.get(), certificate) == 1, "writing a certificate");
  return contents(out.get());
}

Certificate certificateFromPem(const std::string& text) {
  const Memory in = memory(text);
  Certificate certificate(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
  ERR_clear_error();
  return certificate;
}

bool lasts(X509* certificate, Date until) {
  std::time_t moment = seconds(until);
  return X509_cmp_time(X509_get0_notAfter(certificate), &moment) > 0;
}

bool stillGood(const Certificates& kept, Date now) {
  const Certificate authority = certificateFromPem(kept.authority);
  const Certificate server = certificateFromPem(kept.server);
  const Key key = keyFromPem(kept.serverKey);
  if (!authority || !server || !key) return false;
  const bool fits = X509_check_private_key(server.get(), key.get()) == 1 &&
                    X509_verify(server.get(), X509_get0_pubkey(authority.get())) == 1;
  ERR_clear_error();
  const Date tomorrow = now + std::chrono::days(1);
  return fits && lasts(authority.get(), tomorrow) && lasts(server.get(), tomorrow);
}

}  // namespace

Certificates loadOrMakeCertificates(const std::filesystem::path& directory, Date now) {
  const auto authorityFile = directory / "ca.pem";
  const auto serverFile = directory / "server.pem";
  const auto keyFile = directory / "server-key.pem";

  const Certificates kept{readFile(authorityFile).value_or(""), readFile(serverFile).value_or(""),
                          readFile(keyFile).value_or("")};
  if (stillGood(kept, now)) return kept;

  const Key authorityKey = newKey();
  const Key serverKey = newKey();
  const Certificate authority = makeCertificate(authorityKey.get(), "Vorlane local cloud CA",
                                                authorityExtensions, nullptr, authorityKey.get(), now);
  const Certificate server = makeCertificate(serverKey.get(), "localhost", serverExtensions, authority.get(),
                                             authorityKey.get(), now);
  const Certificates made{pem(authority.get()), pem(server.get()), privatePem(serverKey.get())};
  replaceFile(keyFile, made.serverKey, 0600);
  replaceFile(serverFile, made.server, 0644);
  replaceFile(authorityFile, made.authority, 0644);
  return made;
}

}  // namespace vorlane::devcloud
