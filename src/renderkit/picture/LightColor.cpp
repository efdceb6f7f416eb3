#include "renderkit/picture/LightColor.h"

#include "renderkit/shot/BundleSceneBuilder.h"

#include <array>

namespace renderkit::picture {
namespace {

struct Chromaticity {
  double x, y;
};

/// A cubic fit of the black body's locus, good from 1667 K to 4000 K.
Chromaticity blackBody(double t) {
  const double k = 1e3 / t;
  const double x = -0.2661239 * k * k * k - 0.2343589 * k * k + 0.8776956 * k + 0.179910;
  const double y = t < 2222 ? -1.1063814 * x * x * x - 1.34811020 * x * x + 2.18555832 * x - 0.20219683
                            : -0.9549476 * x * x * x - 1.37418593 * x * x + 2.09137015 * x - 0.16748867;
  return {x, y};
}

/// The locus of daylight, defined from 4000 K to 25000 K.
Chromaticity daylight(double t) {
  const double k = 1e3 / t;
  const double x = t <= 7000 ? -4.6070 * k * k * k + 2.9678 * k * k + 0.09911 * k + 0.244063
                             : -2.0064 * k * k * k + 1.9018 * k * k + 0.24748 * k + 0.237040;
  return {x, -3.000 * x * x + 2.870 * x - 0.275};
}

Vector3 ofLuminanceOne(const Vector3& color) {
  const float y = luminance(color);
  return y > 0 ? color * (1 / y) : Vector3{};
}

}  // namespace

float linearFromSRGB(float value) {
  return value <= 0.04045f ? value / 12.92f : std::pow((value + 0.055f) / 1.055f, 2.4f);
}

float linearFromByte(unsigned char value) {
  static const auto table = [] {
    std::array<float, 256> values{};
    for (std::size_t i = 0; i < 256; ++i) values[i] = linearFromSRGB(static_cast<float>(i) / 255);
    return values;
  }();
  return table[value];
}

float sRGBFromLinear(float value) {
  return value <= 0.0031308f ? value * 12.92f : 1.055f * std::pow(value, 1 / 2.4f) - 0.055f;
}

Vector3 linearFromHex(const std::string& hex) {
  const auto color = BundleSceneBuilder::color(hex, 1);
  return {linearFromSRGB(color.red), linearFromSRGB(color.green), linearFromSRGB(color.blue)};
}

Vector3 colorOfTemperature(double kelvin) {
  if (!std::isfinite(kelvin) || kelvin <= 0) return {1, 1, 1};
  const double t = std::clamp(kelvin, 1667.0, 25000.0);
  const double share = std::clamp((t - 4000) / 1000, 0.0, 1.0);
  const auto warm = blackBody(std::min(t, 5000.0)), cold = daylight(std::max(t, 4000.0));
  const double x = std::lerp(warm.x, cold.x, share), y = std::lerp(warm.y, cold.y, share);
  const double bigX = x / y, bigZ = (1 - x - y) / y;
  // The reddest temperatures lie outside of sRGB; they go to its edge.
  const auto channel = [](double value) { return static_cast<float>(std::max(value, 0.0)); };
  return ofLuminanceOne({channel(3.2404542 * bigX - 1.5371385 - 0.4985314 * bigZ),
                         channel(-0.9692660 * bigX + 1.8760108 + 0.0415560 * bigZ),
                         channel(0.0556434 * bigX - 0.2040259 + 1.0572252 * bigZ)});
}

Vector3 lightColor(const std::optional<std::string>& firstHex, std::optional<double> kelvin,
                   const std::optional<std::string>& lastHex) {
  if (firstHex) return ofLuminanceOne(linearFromHex(*firstHex));
  if (kelvin) return colorOfTemperature(*kelvin);
  if (lastHex) return ofLuminanceOne(linearFromHex(*lastHex));
  return {1, 1, 1};
}

}  // namespace renderkit::picture
