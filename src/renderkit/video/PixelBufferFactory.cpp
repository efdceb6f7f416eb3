#include "renderkit/video/PixelBufferFactory.h"

#include "renderkit/video/EncodeError.h"
#include "renderkit/video/VideoLimits.h"

#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace renderkit {
namespace {

// The statuses of the pixel buffers' own library.
constexpr std::int32_t noBaseAddress = -6660, allocationFailed = -6662, invalidSize = -6681;

/// Rows begin where the widest vectors like them.
constexpr std::size_t alignment = 64;

std::shared_ptr<std::uint8_t> allocateAligned(std::size_t bytes) {
  auto* memory = static_cast<std::uint8_t*>(::operator new(bytes, std::align_val_t(alignment), std::nothrow));
  if (memory == nullptr) return nullptr;
  return {memory, [](std::uint8_t* at) { ::operator delete(at, std::align_val_t(alignment)); }};
}

std::uint8_t channel(double value) {
  const auto scaled = value * 255;
  // Written so that NaN becomes 0.
  if (!(scaled > 0)) return 0;
  return scaled >= 255 ? 255 : static_cast<std::uint8_t>(scaled);
}

}  // namespace

struct PixelBufferFactory::Pool {
  /// More than the frames in flight between a source and the encoder need not be kept.
  static constexpr std::size_t most = 8;

  std::shared_ptr<std::uint8_t> take() {
    {
      const std::scoped_lock lock(mutex);
      if (!free.empty()) {
        auto memory = std::move(free.back());
        free.pop_back();
        return memory;
      }
    }
    return allocate(bytes);
  }

  void giveBack(std::shared_ptr<std::uint8_t> memory) {
    const std::scoped_lock lock(mutex);
    if (free.size() < most) free.push_back(std::move(memory));
  }

  Allocate allocate;
  std::size_t bytes = 0;
  std::mutex mutex;
  std::vector<std::shared_ptr<std::uint8_t>> free;
};

PixelBufferFactory::PixelBufferFactory(int width, int height, Allocate allocate)
    : width_(width), height_(height), bytesPerRow_(0), pool_(std::make_shared<Pool>()) {
  const auto isSide = [](int side) { return side > 0 && side <= VideoLimits::largestSide; };
  if (!isSide(width) || !isSide(height)) throw EncodeError::pixelBufferPoolCreateFailed(invalidSize);
  bytesPerRow_ = (4 * static_cast<std::size_t>(width) + alignment - 1) / alignment * alignment;
  pool_->allocate = allocate ? std::move(allocate) : Allocate(allocateAligned);
  pool_->bytes = bytesPerRow_ * static_cast<std::size_t>(height);
  pool_->free.reserve(Pool::most);
}

PixelBuffer PixelBufferFactory::buffer() {
  auto memory = pool_->take();
  if (!memory) throw EncodeError::pixelBufferCreateFailed(allocationFailed);
  auto* address = memory.get();
  // The last user's letting go returns the memory to the pool.
  std::shared_ptr<std::uint8_t> lent(
      address, [pool = pool_, memory = std::move(memory)](std::uint8_t*) { pool->giveBack(memory); });
  return {width_, height_, bytesPerRow_, std::move(lent)};
}

PixelBuffer PixelBufferFactory::solidFrame(double red, double green, double blue) {
  auto frame = buffer();
  fill(frame, red, green, blue);
  return frame;
}

void PixelBufferFactory::fill(PixelBuffer& buffer, double red, double green, double blue) {
  if (buffer.baseAddress() == nullptr) throw EncodeError::pixelBufferCreateFailed(noBaseAddress);
  const std::uint8_t pixel[] = {channel(blue), channel(green), channel(red), 255};
  const auto width = static_cast<std::size_t>(buffer.width());
  auto* first = buffer.row(0);
  for (std::size_t x = 0; x < width; ++x) std::memcpy(first + 4 * x, pixel, 4);
  for (int y = 1; y < buffer.height(); ++y) std::memcpy(buffer.row(y), first, 4 * width);
}

}  // namespace renderkit
