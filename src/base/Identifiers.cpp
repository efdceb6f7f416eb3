#include "base/Identifiers.h"

#include "base/SecureRandom.h"
#include "base/Text.h"

#include <array>
#include <charconv>
#include <cstring>

namespace vorlane {
namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

using UUIDBytes = std::array<unsigned char, 16>;

/// An import makes tens of thousands of ids: they ask the system for randomness
/// once for many.
UUIDBytes nextRandom() {
  constexpr std::size_t idsAtOnce = 64;
  struct Reserve {
    std::string bytes;
    std::size_t used = 0;
  };
  thread_local Reserve reserve;
  if (reserve.used == reserve.bytes.size()) reserve = {secureRandomBytes(idsAtOnce * sizeof(UUIDBytes)), 0};
  UUIDBytes id;
  std::memcpy(id.data(), reserve.bytes.data() + reserve.used, id.size());
  reserve.used += id.size();
  return id;
}

/// The text of a random UUID (version 4, RFC 4122 variant) over these bytes.
std::string uuidText(UUIDBytes id, const char* hex) {
  id[6] = static_cast<unsigned char>((id[6] & 0x0f) | 0x40);
  id[8] = static_cast<unsigned char>((id[8] & 0x3f) | 0x80);
  std::string text(36, '-');
  std::size_t at = 0;
  for (std::size_t i = 0; i < id.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) ++at;
    text[at++] = hex[id[i] >> 4];
    text[at++] = hex[id[i] & 15];
  }
  return text;
}

}  // namespace

std::string newLowercaseUUID() {
  return uuidText(nextRandom(), "0123456789abcdef");
}

std::string newUppercaseUUID() {
  return uuidText(nextRandom(), "0123456789ABCDEF");
}

std::optional<std::string> canonicalUUID(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !isHex(text[i])) return std::nullopt;
  }
  return asciiLowercased(text);
}

std::optional<long long> decimalInteger(std::string_view text) {
  // from_chars takes a minus sign but no plus.
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  long long value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace vorlane
