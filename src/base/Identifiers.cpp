#include "base/Identifiers.h"

#include "base/SecureRandom.h"
#include "base/Text.h"

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <charconv>
#include <cstring>

namespace vorlane {
namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

std::string newLowercaseUUID() {
  const auto random = secureRandomBytes(16);
  boost::uuids::uuid id;
  std::memcpy(id.data, random.data(), 16);
  id.data[6] = static_cast<unsigned char>((id.data[6] & 0x0f) | 0x40);  // version 4
  id.data[8] = static_cast<unsigned char>((id.data[8] & 0x3f) | 0x80);  // RFC 4122 variant
  return boost::uuids::to_string(id);
}

std::string newUppercaseUUID() {
  auto text = newLowercaseUUID();
  for (char& c : text) {
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
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
