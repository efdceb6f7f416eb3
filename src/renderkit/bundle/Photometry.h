#pragma once

#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace renderkit {

enum class SunMode { sun, moon };

enum class MeterMode { incidentFlat, incidentDome, reflected };

/// A sun or a moon: a directional light whose lux is measured across its beam.
struct PhotometrySun {
  std::string id;
  /// Clockwise from -Z, seen from above.
  double azDeg = 0;
  double elDeg = 0;
  double lux = 0;
  /// Radius over distance is the tangent of half the disc's angle. Metres.
  double discRadiusM = 0;
  double distanceM = 0;
  /// The web preview's exponent; physical light does not use it.
  double falloff = 0;
  /// Replaces the temperature.
  std::optional<std::string> colorOverrideHex;
  /// Kelvin.
  std::optional<double> cctK;
  std::optional<std::string> discColorHex;
  bool castShadow = false;
  SunMode mode = SunMode::sun;
  bool lockSunColor = false;
  bool operator==(const PhotometrySun&) const = default;
};

/// A practical light: a fixture that stands in the scene.
struct PhotometryLight {
  /// Also the id, else the shapeId, of the mesh that it stands at.
  std::string id;
  std::string name;
  std::string fixtureId;
  double outputLumens = 0;
  /// Rated illuminance at ten feet; decides over the lumens when above 0.
  double luxAt10ft = 0;
  double beamAngleDeg = 0;
  double dimmer = 0;
  std::string colorHex;
  /// Kelvin; decides over colorHex.
  std::optional<double> cctK;
  std::optional<double> penumbra;
  std::optional<std::string> cookieId;
  /// Above the ground plane.
  double heightM = 0;
  /// Below the horizon.
  double aimAngleRad = 0;
  bool lightOn = false;
  bool operator==(const PhotometryLight&) const = default;
};

struct PhotometryAmbient {
  double lux = 0;
  std::optional<std::string> colorOverrideHex;
  std::optional<double> cctK;
  bool operator==(const PhotometryAmbient&) const = default;
};

/// The exposure triangle, and how it was metered.
struct PhotometryExposure {
  double iso = 0;
  double tStop = 0;
  double shutterAngleDeg = 0;
  double fps = 0;
  MeterMode meterMode = MeterMode::incidentFlat;
  bool operator==(const PhotometryExposure&) const = default;
};

/// The constants with which the web application turns physical units into render
/// intensities. The document carries them all; the values here are those it ships with.
struct PhotometryConstants {
  double luxToIntensity = 0.001;
  double renderLuxToIntensity = 0.001;
  double povMidGreyGain = 0.001 / std::numbers::pi;
  double sunSoftnessDistanceRefM = 50;
  double sunShadowRadiusMin = 0.5;
  double sunShadowRadiusMax = 24;
  double sunSoftnessGain = 1.5;
  double sunFalloffDefault = 1;
  double sunFalloffMin = 0.1;
  double sunFalloffMax = 4;
  /// Ten feet.
  double outputReferenceDistanceM = 3.048;
  double incidentConstantFlat = 250;
  double incidentConstantDome = 320;
  bool operator==(const PhotometryConstants&) const = default;
};

/// "photometry.json": the shot's light and exposure in physical units. Lux, lumens and
/// kelvin as said; a key that is missing in the document fails the decode, but for the optional ones.
struct PhotometryDoc {
  std::vector<PhotometrySun> suns;
  std::vector<PhotometryLight> lights;
  PhotometryAmbient ambient;
  PhotometryExposure exposure;
  PhotometryConstants constants;
  bool operator==(const PhotometryDoc&) const = default;
};

}  // namespace renderkit
