#pragma once

#include "renderkit/picture/EmbreeScene.h"

namespace renderkit::picture {

struct PlaceOnTexture {
  float u = 0, v = 0;
};

/// Texture coordinates at a hit; (0, 0) where the mesh has none.
inline PlaceOnTexture uvOf(const EmbreeScene::Surface& surface, std::uint32_t triangle, float u, float v) {
  if (surface.uvs == nullptr) return {};
  const auto* corners = surface.indices + 3 * static_cast<std::size_t>(triangle);
  const float* a = surface.uvs + 2 * static_cast<std::size_t>(corners[0]);
  const float* b = surface.uvs + 2 * static_cast<std::size_t>(corners[1]);
  const float* c = surface.uvs + 2 * static_cast<std::size_t>(corners[2]);
  const float w = 1 - u - v;
  return {a[0] * w + b[0] * u + c[0] * v, a[1] * w + b[1] * u + c[1] * v};
}

/// The normal that light falls on at a hit, in the world, on the side of `face`; of length 1.
/// `own` is the triangle's normal in the mesh's space, `face` the same in the world, turned to
/// where the ray came from, and `turned` tells whether it had to be.
inline Vector3 shadingNormal(const EmbreeScene::Surface& surface, std::uint32_t triangle, float u, float v,
                             const Vector3& own, const Vector3& face, bool turned) {
  if (surface.normals == nullptr) return face;
  constexpr float crease = 0.85f;  // cosine of what still counts as one rounded surface
  const auto* corners = surface.indices + 3 * static_cast<std::size_t>(triangle);
  const float weights[3] = {1 - u - v, u, v};
  const auto flat = surface.creased ? normalized(own) : Vector3{};
  Vector3 sum;
  for (int i = 0; i < 3; ++i) {
    const float* n = surface.normals + 3 * static_cast<std::size_t>(corners[i]);
    const Vector3 corner{n[0], n[1], n[2]};
    sum += (surface.creased && !(dot(corner, flat) >= crease) ? flat : corner) * weights[i];
  }
  const auto normal = normalized(surface.normalsToWorld.direction(sum), turned ? -face : face);
  return turned ? -normal : normal;
}

/// How much of u and v one pixel covers; `width` is the pixel's width there in metres.
inline float footprintOnTexture(const EmbreeScene::Surface& surface, std::uint32_t triangle, float width) {
  if (surface.uvs == nullptr) return 0;
  const auto* corners = surface.indices + 3 * static_cast<std::size_t>(triangle);
  Vector3 p[3];
  float uv[3][2];
  for (int i = 0; i < 3; ++i) {
    const auto vertex = static_cast<std::size_t>(corners[i]);
    const float* at = surface.positions + 3 * vertex;
    p[i] = {at[0], at[1], at[2]};
    uv[i][0] = surface.uvs[2 * vertex];
    uv[i][1] = surface.uvs[2 * vertex + 1];
  }
  const auto& to = surface.toWorld;
  const float area = length(cross(to.direction(p[1] - p[0]), to.direction(p[2] - p[0])));
  const float onTexture =
      std::abs((uv[1][0] - uv[0][0]) * (uv[2][1] - uv[0][1]) - (uv[2][0] - uv[0][0]) * (uv[1][1] - uv[0][1]));
  return area > 0 ? width * std::sqrt(onTexture / area) : 0;
}

}  // namespace renderkit::picture
