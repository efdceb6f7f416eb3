#include "renderkit/video/EncodeError.h"

#include <fmt/format.h>

namespace renderkit {

EncodeError EncodeError::pixelBufferPoolCreateFailed(std::int32_t status) {
  return EncodeError(fmt::format("[encode] CVPixelBufferPool create failed ({})", status));
}

EncodeError EncodeError::pixelBufferCreateFailed(std::int32_t status) {
  return EncodeError(fmt::format("[encode] CVPixelBuffer create failed ({})", status));
}

EncodeError EncodeError::writerSetupFailed(const std::string& detail) {
  return EncodeError("[encode] AVAssetWriter setup failed: " + detail);
}

EncodeError EncodeError::appendFailed(std::int64_t frameIndex, const std::string& underlying) {
  return EncodeError(fmt::format("[encode] append failed at frame {}: {}", frameIndex, underlying));
}

EncodeError EncodeError::writerFailed(const std::string& detail) {
  return EncodeError("[encode] AVAssetWriter failed: " + detail);
}

EncodeError EncodeError::unsafeOutputFolderPath(const std::string& path) {
  return EncodeError("[encode] manifest outputFolderPath escapes the render root: " + path);
}

}  // namespace renderkit
