#include "renderkit/picture/DirectLight.h"

#include "renderkit/picture/Veils.h"

#include <numbers>

namespace renderkit::picture {

Frame::Frame(const Vector3& n) {
  const float sign = std::copysign(1.0f, n.z);
  const float p = -1 / (sign + n.z), q = n.x * n.y * p;
  a = {1 + sign * n.x * n.x * p, sign * q, -sign * n.x};
  b = {q, sign + n.y * n.y * p, -n.y};
}

Sample2 onDisc(Sample2 square) {
  const float x = 2 * square.u - 1, y = 2 * square.v - 1;
  if (x == 0 && y == 0) return {0, 0};
  constexpr float quarter = std::numbers::pi_v<float> / 4;
  const bool wide = std::abs(x) > std::abs(y);
  const float radius = wide ? x : y;
  const float angle = wide ? quarter * (y / x) : 2 * quarter - quarter * (x / y);
  return {radius * std::cos(angle), radius * std::sin(angle)};
}

void DirectLight::gather(LitPoints& points, const std::vector<Light>& lights, const std::uint32_t* seeds,
                         std::uint32_t dimension) {
  for (std::size_t index = 0; index < lights.size(); ++index) {
    const auto& light = lights[index];
    weigh(points, light);
    for (std::size_t i = 0; i < points.size; ++i) arriving_[i] = 1;
    if (light.castsShadow) shade(points, light, seeds, dimension + static_cast<std::uint32_t>(index));
    const auto [r, g, b] = light.strength;
    for (std::size_t i = 0; i < points.size; ++i) {
      const float share = weight_[i] * arriving_[i];
      points.ex[i] += r * share;
      points.ey[i] += g * share;
      points.ez[i] += b * share;
      // Three steps of a half-shadow are told apart, and the edge of a beam.
      const auto level = weight_[i] > 0 ? static_cast<std::uint32_t>(arriving_[i] * 3 + 0.5f) : 3u;
      points.pattern[i] = points.pattern[i] * 5 + level;
    }
  }
}

void DirectLight::weigh(const LitPoints& points, const Light& light) {
  light.kind == Light::Kind::directional ? weighDirectional(points, light) : weighSpot(points, light);
}

void DirectLight::weighDirectional(const LitPoints& points, const Light& light) {
  const auto [x, y, z] = light.direction;
  for (std::size_t i = 0; i < points.size; ++i) {
    const float cosine = points.nx[i] * x + points.ny[i] * y + points.nz[i] * z;
    const float behind = points.fx[i] * x + points.fy[i] * y + points.fz[i] * z;
    weight_[i] = behind > 0 && cosine > 0 ? cosine : 0;
  }
}

void DirectLight::weighSpot(const LitPoints& points, const Light& light) {
  const auto [ax, ay, az] = light.direction;
  const float fade = 1 / std::max(light.cosInner - light.cosOuter, 1e-6f);
  for (std::size_t i = 0; i < points.size; ++i) {
    const float x = light.position.x - points.px[i], y = light.position.y - points.py[i];
    const float z = light.position.z - points.pz[i];
    // Nearer than a millimetre it gets no brighter.
    const float square = std::max(x * x + y * y + z * z, 1e-6f);
    const float inverse = 1 / std::sqrt(square);
    const float cosine = points.nx[i] * x + points.ny[i] * y + points.nz[i] * z;
    const float behind = points.fx[i] * x + points.fy[i] * y + points.fz[i] * z;
    const float axis = -(ax * x + ay * y + az * z) * inverse;
    const float part = std::min(std::max((axis - light.cosOuter) * fade, 0.0f), 1.0f);
    const float share = cosine * inverse * (part * part * (3 - 2 * part)) / square;
    weight_[i] = behind > 0 && share > 0 ? share : 0;
  }
}

void DirectLight::shade(const LitPoints& points, const Light& light, const std::uint32_t* seeds,
                        std::uint32_t dimension) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < points.size; ++i) {
    if (weight_[i] > 0) lit_[count++] = static_cast<std::uint16_t>(i);
  }
  const bool directional = light.kind == Light::Kind::directional;
  Veils veils(scene_, light);
  RTCRay8 rays;
  for (std::size_t first = 0; first < count; first += 8) {
    alignas(32) int valid[8];
    float arriving[8];
    for (std::size_t lane = 0; lane < 8; ++lane) {
      valid[lane] = first + lane < count ? -1 : 0;
      const auto i = lit_[std::min(first + lane, count - 1)];
      const auto from = points.liftedPlace(i);
      const auto to = towards(points, i, light, from, seeds, dimension);
      rays.org_x[lane] = from.x, rays.org_y[lane] = from.y, rays.org_z[lane] = from.z;
      rays.dir_x[lane] = to.x, rays.dir_y[lane] = to.y, rays.dir_z[lane] = to.z;
      rays.tnear[lane] = 0;
      rays.tfar[lane] = directional ? std::numeric_limits<float>::infinity() : 0.9999f;
      rays.time[lane] = points.time[i];
      rays.mask[lane] = ~0u;
      rays.id[lane] = static_cast<unsigned>(lane);
      rays.flags[lane] = 0;
    }
    veils.trace(valid, rays, arriving);
    for (std::size_t lane = 0; lane < 8 && first + lane < count; ++lane)
      arriving_[lit_[first + lane]] = arriving[lane];
  }
}

Vector3 DirectLight::towards(const LitPoints& points, std::size_t i, const Light& light, const Vector3& from,
                             const std::uint32_t* seeds, std::uint32_t dimension) const {
  const bool directional = light.kind == Light::Kind::directional;
  const auto centre = directional ? light.direction : light.position - from;
  if (!soft_ || !(light.radius > 0)) return centre;
  const auto owner = points.owner[i];
  const auto [u, v] = onDisc(sampler_.pair(seeds[owner.pixel], owner.sample, dimension));
  const Frame frame(directional ? light.direction : normalized(centre));
  return centre + (frame.a * u + frame.b * v) * light.radius;
}

}  // namespace renderkit::picture
