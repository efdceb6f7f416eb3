#pragma once

#include "renderkit/picture/Vector3.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace renderkit::picture {

/// An image on surfaces, repeated endlessly, with smaller versions of itself for what is far
/// away. Its first row lies at v = 1. Any thread may read it.
class Texture {
 public:
  /// `pixels` has four sRGB bytes for each: red, green, blue and alpha, rows from the top.
  Texture(int width, int height, std::vector<std::uint8_t> pixels);

  struct Texel {
    Vector3 color;  // linear
    float alpha;
  };
  /// Filtered at a place; `footprint` is how much of u and v one pixel of the picture covers.
  Texel at(float u, float v, float footprint) const;

  bool hasAlpha() const { return hasAlpha_; }
  /// Texels on a side that has the mean of both sides' length.
  float meanSide() const;

 private:
  struct Level {
    int width, height;
    std::vector<std::uint8_t> pixels;
    Texel texel(int x, int y) const;
    Texel bilinear(float u, float v) const;
  };
  static Level half(const Level& level);

  std::vector<Level> levels_;
  bool hasAlpha_ = false;
};

}  // namespace renderkit::picture
