#include "base/Encodings.h"

#include "base/Base64Decoder.h"

#include <openssl/evp.h>

namespace vorlane {

std::string hexText(std::string_view bytes) {
  static constexpr char hex[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += hex[byte >> 4];
    out += hex[byte & 15];
  }
  return out;
}

std::string base64Encoded(std::string_view bytes) {
  std::string out((bytes.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  return out;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  // OpenSSL's decoder skips white space and keeps the padding as zero bytes;
  // what is read here has to be exact.
  Base64Decoder decoder;
  std::string out;
  out.resize_and_overwrite(Base64Decoder::maximumBytes(text.size()),
                           [&](char* bytes, std::size_t) { return decoder.decode(text, bytes).value_or(0); });
  if (!decoder.complete()) return std::nullopt;
  return out;
}

std::string base64URLEncoded(std::string_view bytes) {
  auto text = base64Encoded(bytes);
  while (text.ends_with('=')) text.pop_back();
  for (char& c : text) {
    if (c == '+') c = '-';
    if (c == '/') c = '_';
  }
  return text;
}

}  // namespace vorlane
