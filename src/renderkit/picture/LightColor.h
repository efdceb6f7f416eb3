#pragma once

#include "renderkit/picture/Vector3.h"

#include <optional>
#include <string>

namespace renderkit::picture {

/// Linear value of an sRGB one, both 0 to 1.
float linearFromSRGB(float value);
/// The same for a byte, by a table.
float linearFromByte(unsigned char value);
/// sRGB value of a linear one, both 0 to 1.
float sRGBFromLinear(float value);

/// The share of what the eye sees that each linear channel carries.
inline float luminance(const Vector3& c) {
  return 0.2126f * c.x + 0.7152f * c.y + 0.0722f * c.z;
}

/// "#rrggbb" as a linear colour; anything else is white.
Vector3 linearFromHex(const std::string& hex);

/// The linear colour of a temperature in kelvin, with luminance 1: along the black body's locus
/// below 4000 K and along daylight's above 5000 K, so that 6504 K is white. What is no temperature is white.
Vector3 colorOfTemperature(double kelvin);

/// The colour of a light, with luminance 1, so that its lux stay what they are; black for black.
/// The first that is there decides.
Vector3 lightColor(const std::optional<std::string>& firstHex, std::optional<double> kelvin,
                   const std::optional<std::string>& lastHex = std::nullopt);

}  // namespace renderkit::picture
