#pragma once

#include <algorithm>
#include <cmath>

namespace renderkit::picture {

/// A point or a direction in metres, or a linear colour (red, green, blue).
struct Vector3 {
  float x = 0, y = 0, z = 0;

  Vector3& operator+=(const Vector3& o) { return *this = {x + o.x, y + o.y, z + o.z}; }
  bool operator==(const Vector3&) const = default;
};

inline Vector3 operator+(const Vector3& a, const Vector3& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vector3 operator-(const Vector3& a, const Vector3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vector3 operator-(const Vector3& a) {
  return {-a.x, -a.y, -a.z};
}
inline Vector3 operator*(const Vector3& a, float s) {
  return {a.x * s, a.y * s, a.z * s};
}
inline Vector3 operator*(float s, const Vector3& a) {
  return a * s;
}
/// Entry by entry, as colours filter each other.
inline Vector3 operator*(const Vector3& a, const Vector3& b) {
  return {a.x * b.x, a.y * b.y, a.z * b.z};
}

inline float dot(const Vector3& a, const Vector3& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float length(const Vector3& a) {
  return std::sqrt(dot(a, a));
}
inline float largest(const Vector3& a) {
  return std::max({std::abs(a.x), std::abs(a.y), std::abs(a.z)});
}
inline bool isFinite(const Vector3& a) {
  return std::isfinite(a.x + a.y + a.z);
}
inline Vector3 mix(const Vector3& a, const Vector3& b, float t) {
  return a * (1 - t) + b * t;
}

/// Of length 1; of what has no direction, the fallback.
inline Vector3 normalized(const Vector3& a, const Vector3& fallback = {0, 0, -1}) {
  const float square = dot(a, a);
  if (!(square > 1e-30f) || !std::isfinite(square)) return fallback;
  return a * (1 / std::sqrt(square));
}

}  // namespace renderkit::picture
