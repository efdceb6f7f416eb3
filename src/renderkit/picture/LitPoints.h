#pragma once

#include "renderkit/picture/RayQueue.h"

#include <array>

namespace renderkit::picture {

/// Points on surfaces that light is gathered for, field by field, so that the compiler can
/// take eight at a time.
struct LitPoints {
  using Field = std::array<float, RayQueue::capacity>;

  alignas(32) Field px, py, pz;  // place
  alignas(32) Field nx, ny, nz;  // normal for shading
  alignas(32) Field fx, fy, fz;  // the triangle's normal, on the same side
  alignas(32) Field ex, ey, ez;  // what it gets: lux by colour
  std::array<float, RayQueue::capacity> time;
  std::array<Vector3, RayQueue::capacity> weight;
  std::array<Owner, RayQueue::capacity> owner;
  /// For each point, a hash of how much of each light arrives.
  std::array<std::uint32_t, RayQueue::capacity> pattern;
  std::size_t size = 0;

  void add(const Vector3& p, const Vector3& n, const Vector3& face, float when, const Vector3& worth,
           Owner whose) {
    const auto i = size++;
    px[i] = p.x, py[i] = p.y, pz[i] = p.z;
    nx[i] = n.x, ny[i] = n.y, nz[i] = n.z;
    fx[i] = face.x, fy[i] = face.y, fz[i] = face.z;
    ex[i] = ey[i] = ez[i] = 0;
    time[i] = when;
    weight[i] = worth;
    owner[i] = whose;
    pattern[i] = 0;
  }

  Vector3 place(std::size_t i) const { return {px[i], py[i], pz[i]}; }
  Vector3 normal(std::size_t i) const { return {nx[i], ny[i], nz[i]}; }
  Vector3 face(std::size_t i) const { return {fx[i], fy[i], fz[i]}; }
  Vector3 lux(std::size_t i) const { return {ex[i], ey[i], ez[i]}; }

  /// A place off the surface, so that a ray from there does not meet the surface itself.
  Vector3 liftedPlace(std::size_t i) const {
    const auto p = place(i);
    return p + face(i) * (1e-4f + 4e-6f * largest(p));
  }
};

}  // namespace renderkit::picture
