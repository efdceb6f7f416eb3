#include "platform/URLSession.h"

#include "base/Text.h"

namespace vorlane {

std::optional<std::string> URLResponse::header(std::string_view name) const {
  const auto wanted = asciiLowercased(name);
  for (const auto& [key, value] : headers) {
    if (asciiLowercased(key) == wanted) return value;
  }
  return std::nullopt;
}

}  // namespace vorlane
