#include "renderkit/picture/Texture.h"

#include "renderkit/picture/LightColor.h"

#include <utility>

namespace renderkit::picture {
namespace {

std::uint8_t byteOf(float value) {
  return static_cast<std::uint8_t>(std::clamp(value, 0.0f, 1.0f) * 255 + 0.5f);
}

/// The part of a coordinate within one repeat; what is no number is 0.
float wrapped(float value) {
  const float part = value - std::floor(value);
  return part >= 0 && part < 1 ? part : 0;
}

int repeated(int i, int size) {
  return i < 0 ? i + size : i >= size ? i - size : i;
}

Texture::Texel mixed(const Texture::Texel& a, const Texture::Texel& b, float t) {
  return {mix(a.color, b.color, t), a.alpha * (1 - t) + b.alpha * t};
}

}  // namespace

Texture::Texture(int width, int height, std::vector<std::uint8_t> pixels) {
  for (std::size_t i = 3; i < pixels.size() && !hasAlpha_; i += 4) hasAlpha_ = pixels[i] != 255;
  levels_.push_back({width, height, std::move(pixels)});
  while (levels_.back().width > 1 || levels_.back().height > 1) levels_.push_back(half(levels_.back()));
}

Texture::Level Texture::half(const Level& level) {
  Level smaller{std::max(1, level.width / 2), std::max(1, level.height / 2), {}};
  smaller.pixels.reserve(static_cast<std::size_t>(smaller.width) * static_cast<std::size_t>(smaller.height) *
                         4);
  for (int y = 0; y < smaller.height; ++y) {
    const int y1 = std::min(2 * y + 1, level.height - 1);
    for (int x = 0; x < smaller.width; ++x) {
      const int x1 = std::min(2 * x + 1, level.width - 1);
      const auto a = level.texel(2 * x, 2 * y), b = level.texel(x1, 2 * y);
      const auto c = level.texel(2 * x, y1), d = level.texel(x1, y1);
      const auto color = (a.color + b.color + c.color + d.color) * 0.25f;
      for (const float channel : {color.x, color.y, color.z})
        smaller.pixels.push_back(byteOf(sRGBFromLinear(channel)));
      smaller.pixels.push_back(byteOf((a.alpha + b.alpha + c.alpha + d.alpha) * 0.25f));
    }
  }
  return smaller;
}

Texture::Texel Texture::Level::texel(int x, int y) const {
  const auto* p =
      pixels.data() +
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
  return {{linearFromByte(p[0]), linearFromByte(p[1]), linearFromByte(p[2])}, static_cast<float>(p[3]) / 255};
}

Texture::Texel Texture::Level::bilinear(float u, float v) const {
  const float x = u * static_cast<float>(width) - 0.5f, y = (1 - v) * static_cast<float>(height) - 0.5f;
  const float left = std::floor(x), top = std::floor(y);
  const int x0 = repeated(static_cast<int>(left), width), x1 = repeated(static_cast<int>(left) + 1, width);
  const int y0 = repeated(static_cast<int>(top), height), y1 = repeated(static_cast<int>(top) + 1, height);
  const float s = x - left;
  return mixed(mixed(texel(x0, y0), texel(x1, y0), s), mixed(texel(x0, y1), texel(x1, y1), s), y - top);
}

Texture::Texel Texture::at(float u, float v, float footprint) const {
  u = wrapped(u);
  v = wrapped(v);
  const float last = static_cast<float>(levels_.size() - 1);
  const float covered = footprint * meanSide();
  const float level = covered > 1 ? std::min(std::log2(covered), last) : 0;  // NaN: the finest
  const auto lower = static_cast<std::size_t>(level);
  const float rest = level - static_cast<float>(lower);
  const auto fine = levels_[lower].bilinear(u, v);
  return rest > 0 ? mixed(fine, levels_[lower + 1].bilinear(u, v), rest) : fine;
}

float Texture::meanSide() const {
  return std::sqrt(static_cast<float>(levels_[0].width) * static_cast<float>(levels_[0].height));
}

}  // namespace renderkit::picture
