#include "base/Digest.h"

#include "base/Failure.h"

#include <openssl/evp.h>

#include <array>
#include <cstdint>

namespace vorlane {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto values = [] {
  std::array<std::int8_t, 256> table{};
  table.fill(-1);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    table[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
  }
  return table;
}();

}  // namespace

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, 32> digest{};
  unsigned length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    throw Failure("SHA-256 is not available");
  }
  return hexText({reinterpret_cast<const char*>(digest.data()), length});
}

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
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && text.ends_with('=')) {
    text.remove_suffix(1);
    ++padding;
  }
  std::string out;
  out.reserve(text.size() * 3 / 4);
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const auto value = values[static_cast<unsigned char>(c)];
    if (value < 0) return std::nullopt;
    bits = (bits << 6) | static_cast<std::uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>((bits >> count) & 0xff);
    }
  }
  if ((bits & ((1U << count) - 1)) != 0 && count > 0) return std::nullopt;
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

bool equalInConstantTime(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

}  // namespace vorlane
