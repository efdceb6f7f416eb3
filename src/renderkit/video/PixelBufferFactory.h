#pragma once

#include "renderkit/video/PixelBuffer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace renderkit {

/// Gives pixel buffers of one size, and takes their memory back for the next ones.
/// Buffers may outlive the factory and be let go on any thread.
class PixelBufferFactory {
 public:
  /// Gives so many bytes, aligned for vector instructions, or null.
  using Allocate = std::function<std::shared_ptr<std::uint8_t>(std::size_t bytes)>;

  /// Throws EncodeError::pixelBufferPoolCreateFailed for a size that no picture has.
  PixelBufferFactory(int width, int height, Allocate allocate = {});

  /// A buffer whose pixels are whatever was there before. Throws EncodeError::pixelBufferCreateFailed.
  PixelBuffer buffer();

  /// A buffer of one colour; each channel is 0 to 1, and clamped to that.
  PixelBuffer solidFrame(double red, double green, double blue);

  /// Makes every pixel that colour and leaves what lies between the rows alone.
  static void fill(PixelBuffer& buffer, double red, double green, double blue);

 private:
  struct Pool;

  int width_;
  int height_;
  std::size_t bytesPerRow_;
  std::shared_ptr<Pool> pool_;
};

}  // namespace renderkit
