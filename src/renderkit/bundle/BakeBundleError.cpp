#include "renderkit/bundle/BakeBundleError.h"

#include <fmt/format.h>

namespace renderkit {

BakeBundleError BakeBundleError::unsupportedVersion(const std::string& text) {
  return BakeBundleError(fmt::format("[bakeBundle] unsupported bundle version {} (expected 1)", text));
}

BakeBundleError BakeBundleError::invalidNumberField(const std::string& name) {
  return BakeBundleError(fmt::format("[bakeBundle] manifest.{} must be a positive number", name));
}

BakeBundleError BakeBundleError::invalidStringField(const std::string& name) {
  return BakeBundleError(fmt::format("[bakeBundle] manifest.{} must be a string", name));
}

BakeBundleError BakeBundleError::missingEntry(const std::string& name) {
  return BakeBundleError("[bakeBundle] bundle entry missing: " + name);
}

BakeBundleError BakeBundleError::misalignedRange(std::int64_t byteOffset) {
  return BakeBundleError(
      fmt::format("[bakeBundle] meshes.bin range byteOffset {} is not 4-byte aligned", byteOffset));
}

BakeBundleError BakeBundleError::rangeOutOfBounds(std::int64_t byteOffset, std::int64_t count,
                                                  std::size_t binSize) {
  return BakeBundleError(fmt::format("[bakeBundle] meshes.bin range [{}, +{}·4) exceeds bin size {}",
                                     byteOffset, count, binSize));
}

BakeBundleError BakeBundleError::manifestNotAnObject() {
  return BakeBundleError("[bakeBundle] manifest is not an object");
}

BakeBundleError BakeBundleError::malformedSlates() {
  return BakeBundleError("[bakeBundle] manifest.slates is malformed");
}

BakeBundleError BakeBundleError::malformedBurnIn() {
  return BakeBundleError("[bakeBundle] manifest.burnIn is malformed");
}

}  // namespace renderkit
