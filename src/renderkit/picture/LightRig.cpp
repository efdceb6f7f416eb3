#include "renderkit/picture/LightRig.h"

#include "renderkit/picture/LightColor.h"
#include "renderkit/shot/TransformReplay.h"

#include <fmt/format.h>

#include <numbers>

namespace renderkit::picture {
namespace {

constexpr double degree = std::numbers::pi / 180;
/// Metres; of a light that stands at no mesh.
constexpr float smallFixture = 0.05f;

/// Half of a fixture's middle extent: neither its stand's height nor its housing's depth.
float radiusOf(const MeshGeometry& mesh) {
  std::array<float, 3> lower{INFINITY, INFINITY, INFINITY}, upper{-INFINITY, -INFINITY, -INFINITY};
  for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
    lower[i % 3] = std::min(lower[i % 3], mesh.positions[i]);
    upper[i % 3] = std::max(upper[i % 3], mesh.positions[i]);
  }
  std::array<float, 3> extents;
  for (std::size_t axis = 0; axis < 3; ++axis) extents[axis] = upper[axis] - lower[axis];
  std::ranges::sort(extents);
  return std::isfinite(extents[1]) ? std::clamp(extents[1] / 2, 0.02f, 0.5f) : smallFixture;
}

/// In candela; not finite or negative where the numbers say nothing.
double candela(const PhotometryLight& light, const PhotometryConstants& constants) {
  const double reference = constants.outputReferenceDistanceM;
  const double dimmed = std::clamp(light.dimmer, 0.0, 1.0);
  if (light.luxAt10ft > 0) return light.luxAt10ft * reference * reference * dimmed;
  const double half = std::min(light.beamAngleDeg / 2, 180.0) * degree;
  return light.outputLumens / (2 * std::numbers::pi * (1 - std::cos(half))) * dimmed;
}

}  // namespace

LightRig::LightRig(const FrameSourceSetup& setup, const Exposure& exposure) : setup_(setup) {
  const auto& photometry = setup.bundle.photometry;
  for (const auto& sun : photometry.suns) addSun(sun);
  for (const auto& light : photometry.lights) addPractical(light);
  const auto& ambient = photometry.ambient;
  if (std::isfinite(static_cast<float>(ambient.lux))) {
    const auto lux = static_cast<float>(std::max(ambient.lux, 0.0));
    ambient_ = lightColor(ambient.colorOverrideHex, ambient.cctK) * lux;
  } else {
    leaveOut("the ambient light has no finite illuminance");
  }
  if (photometry.suns.empty() && practicals_.empty() && !(ambient.lux > 0)) {
    const auto lux = static_cast<float>(exposure.meteredLux());
    ambient_ = {lux, lux, lux};
    // Brighter from above, which shows shapes where nothing throws a shadow.
    slope_ = 0.6f;
    setup_.notices.add("the bundle has no light; a neutral dome lights the scene");
  }
}

void LightRig::leaveOut(const std::string& what) {
  setup_.notices.add(what + ", and is left out");
}

void LightRig::addSun(const PhotometrySun& sun) {
  const double azimuth = sun.azDeg * degree, elevation = sun.elDeg * degree;
  Light light{.kind = Light::Kind::directional, .castsShadow = sun.castShadow};
  light.direction = {static_cast<float>(std::sin(azimuth) * std::cos(elevation)),
                     static_cast<float>(std::sin(elevation)),
                     static_cast<float>(-std::cos(azimuth) * std::cos(elevation))};
  const auto lux = static_cast<float>(sun.lux);
  if (!isFinite(light.direction) || !std::isfinite(lux)) {
    return leaveOut(fmt::format("the {} \"{}\" has a number that is not finite",
                                sun.mode == SunMode::sun ? "sun" : "moon", sun.id));
  }
  light.strength = lightColor(sun.colorOverrideHex, sun.cctK) * std::max(lux, 0.0f);
  const double tangent = sun.discRadiusM / sun.distanceM;
  if (tangent > 0) light.radius = static_cast<float>(std::min(tangent, 1.0));
  suns_.push_back(light);
}

void LightRig::addPractical(const PhotometryLight& light) {
  const auto placement = placeLight(light, setup_.bundle);
  if (!placement) return setup_.notices.add(unplacedLightNotice(light));
  Practical practical{.light = {.kind = Light::Kind::spot},
                      .placement = *placement,
                      .height = static_cast<float>(light.heightM),
                      .aim = static_cast<float>(light.aimAngleRad)};
  const auto strength = static_cast<float>(candela(light, setup_.bundle.photometry.constants));
  const double half = std::min(light.beamAngleDeg / 2, 180.0);
  if (!std::isfinite(strength) || !(half > 0) || !std::isfinite(practical.height + practical.aim)) {
    return leaveOut(
        fmt::format("the light \"{}\" ({}) has a number that is not usable", light.name, light.id));
  }
  auto& made = practical.light;
  const auto color = light.cctK ? colorOfTemperature(*light.cctK) : lightColor(light.colorHex, std::nullopt);
  made.strength = light.lightOn ? color * std::max(strength, 0.0f) : Vector3{};
  const double penumbra =
      std::clamp(std::isfinite(light.penumbra.value_or(0)) ? light.penumbra.value_or(0) : 0, 0.0, 1.0);
  made.cosOuter = static_cast<float>(std::cos(half * degree));
  made.cosInner = static_cast<float>(std::cos(half * (1 - penumbra) * degree));
  // All around there is no edge that could fade.
  if (half >= 180) made.cosOuter = -2, made.cosInner = -1.5f;
  made.radius = smallFixture;
  const auto& meshes = setup_.scene.meshes;
  if (placement->mesh) {
    const auto& geometry = meshes[*placement->mesh].entity.mesh;
    if (geometry) made.radius = radiusOf(*geometry);
    for (std::size_t i = 0; i < meshes.size(); ++i) {
      if (i == *placement->mesh || meshes[i].shapeId == light.id)
        made.fixture.push_back(static_cast<std::uint32_t>(i));
    }
  }
  practicals_.push_back(std::move(practical));
}

std::vector<std::uint32_t> LightRig::fixtures() const {
  std::vector<std::uint32_t> all;
  for (const auto& practical : practicals_) {
    all.insert(all.end(), practical.light.fixture.begin(), practical.light.fixture.end());
  }
  return all;
}

Matrix4 LightRig::node(const LightPlacement& placement, std::int64_t frame) const {
  if (placement.mesh) return setup_.poser.matrix(*placement.mesh, frame);
  return TransformReplay::matrix(TransformReplay::sample(*placement.track, frame));
}

std::vector<Light> LightRig::at(std::int64_t frame) const {
  std::vector<Light> lights;
  for (const auto& sun : suns_) {
    if (largest(sun.strength) > 0) lights.push_back(sun);
  }
  for (const auto& practical : practicals_) {
    if (!(largest(practical.light.strength) > 0)) continue;
    const Affine node(this->node(practical.placement, frame));
    auto light = practical.light;
    light.position = {node.origin.x, practical.height, node.origin.z};
    const auto ahead = normalized({-node.z.x, 0, -node.z.z});
    light.direction = ahead * std::cos(practical.aim) + Vector3{0, -std::sin(practical.aim), 0};
    if (isFinite(light.position) && isFinite(light.direction)) lights.push_back(std::move(light));
  }
  return lights;
}

}  // namespace renderkit::picture
