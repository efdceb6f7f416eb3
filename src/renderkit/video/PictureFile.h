#pragma once

#include "renderkit/video/PixelBuffer.h"

#include <filesystem>

namespace renderkit {

/// Writes one picture as a PNG of 8-bit sRGB, in place of what was at the path. Throws a Failure.
void writePNG(const std::filesystem::path& file, const PixelBuffer& picture);

}  // namespace renderkit
