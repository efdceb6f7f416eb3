#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace renderkit {

/// One picture of 8-bit pixels in memory order blue, green, red, 255; rows from the top.
/// The memory goes back to the pool that it came from. Move only.
class PixelBuffer {
 public:
  /// Takes a row's start for granted: `bytes` holds height times bytesPerRow bytes.
  PixelBuffer(int width, int height, std::size_t bytesPerRow, std::shared_ptr<std::uint8_t> bytes)
      : width_(width), height_(height), bytesPerRow_(bytesPerRow), bytes_(std::move(bytes)) {}
  PixelBuffer(PixelBuffer&&) = default;
  PixelBuffer& operator=(PixelBuffer&&) = default;

  int width() const { return width_; }
  int height() const { return height_; }
  /// May exceed four times the width; the bytes between belong to nobody.
  std::size_t bytesPerRow() const { return bytesPerRow_; }
  std::uint8_t* row(int y) { return bytes_.get() + static_cast<std::size_t>(y) * bytesPerRow_; }
  const std::uint8_t* row(int y) const { return bytes_.get() + static_cast<std::size_t>(y) * bytesPerRow_; }
  /// The first row, or null when there is no memory behind it.
  std::uint8_t* baseAddress() { return bytes_.get(); }

 private:
  int width_;
  int height_;
  std::size_t bytesPerRow_;
  std::shared_ptr<std::uint8_t> bytes_;
};

}  // namespace renderkit
