#pragma once

#include "renderkit/picture/Affine.h"
#include "renderkit/picture/Texture.h"
#include "renderkit/shot/BuiltScene.h"

#include <array>
#include <cstdint>
#include <memory>
#include <numbers>
#include <vector>

namespace renderkit::picture {

/// What a surface does with light. All surfaces are diffuse.
struct Material {
  Vector3 albedo{1, 1, 1};  // linear; times the texture's colour
  float opacity = 1;
  bool doubleSided = false;
  std::shared_ptr<const Texture> texture;

  bool isVeil() const { return opacity < 1 || (texture && texture->hasAlpha()); }
};

/// One mesh in the scene. Instances with the same geometry share its acceleration structure.
struct Instance {
  std::shared_ptr<const MeshGeometry> geometry;
  Material material;
  /// Some light stands in it, which it may not shade.
  bool isFixture = false;
};

/// Where an instance is while the shutter is open: at its opening, its middle and its closing.
using Motion = std::array<Affine, 3>;

struct Light {
  enum class Kind { directional, spot };
  Kind kind = Kind::directional;
  /// Towards a directional light; where a spot points. Of length 1.
  Vector3 direction{0, 1, 0};
  Vector3 position{};
  /// Linear colour times lux across the beam, or times candela.
  Vector3 strength{};
  /// Of the angle from the axis where the beam ends, and where it starts to fade.
  float cosOuter = -1, cosInner = -1;
  /// Tangent of the disc's half angle; a spot's radius in metres.
  float radius = 0;
  bool castsShadow = true;
  /// Instances that cast no shadow from it, in rising order.
  std::vector<std::uint32_t> fixture;
};

/// A camera at one moment.
struct CameraPose {
  Vector3 position{}, right{1, 0, 0}, up{0, 1, 0}, back{0, 0, 1};
};

struct Camera {
  /// At the shutter's opening, middle and closing.
  std::array<CameraPose, 3> poses;
  /// Of half the vertical field of view.
  float tangent = 0.5f;
  /// Metres; 0 shows everything sharp.
  float lensRadius = 0;
  float focusDistance = 1;
};

/// All that one picture shows besides the scene's surfaces.
struct View {
  Camera camera;
  std::vector<Light> lights;
  /// What comes from everywhere, in linear colour times lux on an upright surface.
  Vector3 ambient{};
  /// How much brighter than the horizon the zenith is, as a share; the nadir is as much darker.
  float slope = 0;
  /// Times luminance: the picture's linear value.
  float scale = 1;
  /// Sets this frame's noise.
  std::uint32_t frame = 0;

  /// The luminance of the surroundings in a direction.
  Vector3 sky(const Vector3& direction) const {
    const float height = slope != 0 ? normalized(direction).y : 0;
    return ambient * ((1 + slope * height) * std::numbers::inv_pi_v<float>);
  }
  /// The lux that a surface gets from all of them.
  Vector3 ambientOn(const Vector3& normal) const { return ambient * (1 + slope * normal.y * 2 / 3); }
};

}  // namespace renderkit::picture
