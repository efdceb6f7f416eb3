#pragma once

#include "renderkit/Failure.h"

#include <cstdint>
#include <string>

namespace renderkit {

/// A picture could not be made, or a video not be written.
class EncodeError : public Failure {
 public:
  static EncodeError pixelBufferPoolCreateFailed(std::int32_t status);
  static EncodeError pixelBufferCreateFailed(std::int32_t status);
  static EncodeError writerSetupFailed(const std::string& detail);
  static EncodeError appendFailed(std::int64_t frameIndex, const std::string& underlying);
  static EncodeError writerFailed(const std::string& detail);
  static EncodeError unsafeOutputFolderPath(const std::string& path);

 private:
  using Failure::Failure;
};

}  // namespace renderkit
