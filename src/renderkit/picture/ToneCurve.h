#pragma once

#include "renderkit/picture/Vector3.h"

#include <cstdint>
#include <vector>

namespace renderkit::picture {

/// What the picture shows of linear light: identity up to 0.6, above it a soft shoulder that
/// nears 1 and never reaches it. Steady in its slope. What is no number is black.
float shoulder(float linear);

/// Turns linear colours into sRGB bytes. Any thread once made.
class ToneCurve {
 public:
  ToneCurve();

  /// Writes blue, green, red and 255.
  void write(const Vector3& linear, std::uint8_t* pixel) const;

 private:
  std::uint8_t byte(float linear) const;

  /// From a linear value, in steps fine enough that no byte is off by more than its rounding.
  std::vector<std::uint8_t> bytes_;
};

}  // namespace renderkit::picture
