#include "renderkit/picture/Exposure.h"

#include <cmath>
#include <numbers>

namespace renderkit::picture {
namespace {

constexpr double reflectedConstant = 12.5;
constexpr double midGrey = 0.18;

/// The scale, or what is no positive number where the document names no exposure.
double scaleOf(const PhotometryDoc& photometry) {
  const auto& e = photometry.exposure;
  if (!(e.iso > 0) || !(e.tStop > 0) || !(e.shutterAngleDeg > 0) || !(e.fps > 0)) return 0;
  const double seconds = e.shutterAngleDeg / 360 / e.fps;
  const double perConstant = e.tStop * e.tStop / (seconds * e.iso);
  if (e.meterMode == MeterMode::reflected) return midGrey / (reflectedConstant * perConstant);
  const auto& c = photometry.constants;
  const double constant =
      e.meterMode == MeterMode::incidentFlat ? c.incidentConstantFlat : c.incidentConstantDome;
  return std::numbers::pi / (constant * perConstant);
}

}  // namespace

double Exposure::meteredLux() const {
  return std::numbers::pi / scale;
}

Exposure exposure(const PhotometryDoc& photometry, Notices& notices) {
  const double scale = scaleOf(photometry);
  // As a float it must neither vanish nor overflow.
  if (std::isnormal(static_cast<float>(scale)) && scale > 0) return {scale};
  notices.add(
      "the exposure is not one (ISO, T-stop, shutter angle and frame rate must be above 0); "
      "light is shown as it is");
  return {};
}

}  // namespace renderkit::picture
