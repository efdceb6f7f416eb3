#include "renderkit/picture/ToneCurve.h"

#include "renderkit/picture/LightColor.h"

namespace renderkit::picture {
namespace {

constexpr float knee = 0.6f;
constexpr std::size_t steps = 1 << 14;

}  // namespace

float shoulder(float linear) {
  if (!(linear > 0)) return 0;
  if (linear <= knee) return linear;
  return knee + (1 - knee) * (1 - std::exp((knee - linear) / (1 - knee)));
}

ToneCurve::ToneCurve() : bytes_(steps + 1) {
  for (std::size_t i = 0; i <= steps; ++i) {
    const float value = sRGBFromLinear(static_cast<float>(i) / steps);
    bytes_[i] = static_cast<std::uint8_t>(std::min(value, 1.0f) * 255 + 0.5f);
  }
}

std::uint8_t ToneCurve::byte(float linear) const {
  return bytes_[static_cast<std::size_t>(shoulder(linear) * steps + 0.5f)];
}

void ToneCurve::write(const Vector3& linear, std::uint8_t* pixel) const {
  pixel[0] = byte(linear.z);
  pixel[1] = byte(linear.y);
  pixel[2] = byte(linear.x);
  pixel[3] = 255;
}

}  // namespace renderkit::picture
