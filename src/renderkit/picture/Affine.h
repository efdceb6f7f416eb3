#pragma once

#include "renderkit/picture/Vector3.h"
#include "renderkit/shot/Matrix4.h"

namespace renderkit::picture {

/// The upper three rows of a matrix, column by column: what a mesh in the scene needs of it.
struct Affine {
  Vector3 x{1, 0, 0}, y{0, 1, 0}, z{0, 0, 1}, origin{};

  Affine() = default;
  explicit Affine(const Matrix4& m)
      : x{m.at(0, 0), m.at(1, 0), m.at(2, 0)},
        y{m.at(0, 1), m.at(1, 1), m.at(2, 1)},
        z{m.at(0, 2), m.at(1, 2), m.at(2, 2)},
        origin{m.at(0, 3), m.at(1, 3), m.at(2, 3)} {}

  Vector3 direction(const Vector3& d) const { return x * d.x + y * d.y + z * d.z; }
  Vector3 point(const Vector3& p) const { return direction(p) + origin; }
  float determinant() const { return dot(x, cross(y, z)); }

  /// True when it can be inverted in 32 bits and keeps every point of a scene finite.
  bool isSound() const {
    const float scale = 1 / determinant();
    const auto inverse = normals();
    return isFinite(origin) && std::isfinite(scale) && isFinite(inverse.x * scale) &&
           isFinite(inverse.y * scale) && isFinite(inverse.z * scale);
  }

  /// Takes normals along, whatever the scale or mirroring: the inverse transpose but for a
  /// positive factor.
  Affine normals() const {
    Affine n;
    const float sign = determinant() < 0 ? -1.0f : 1.0f;
    n.x = cross(y, z) * sign;
    n.y = cross(z, x) * sign;
    n.z = cross(x, y) * sign;
    n.origin = {};
    return n;
  }

  bool operator==(const Affine&) const = default;
};

}  // namespace renderkit::picture
