#pragma once

#include "renderkit/Failure.h"

#include <cstdint>
#include <span>
#include <vector>

namespace renderkit::picture {

/// An image file cannot be used; the text says why.
class ImageError : public Failure {
 public:
  using Failure::Failure;
};

struct DecodedImage {
  int width = 0, height = 0;
  /// Red, green, blue and alpha, a byte each, rows from the top.
  std::vector<std::uint8_t> pixels;
};

/// Decodes a PNG, JPEG or WebP file. Images of more than 64 million pixels, or longer than 16384
/// on a side, are refused before memory is taken for them. Throws ImageError.
DecodedImage decodeImage(std::span<const std::uint8_t> file);

}  // namespace renderkit::picture
