#pragma once

#include "renderkit/bundle/BakeBundle.h"

#include <cstddef>
#include <optional>
#include <string>

namespace renderkit {

/// Where a practical light stands: at a mesh, else at a track. One of both is there.
struct LightPlacement {
  /// Its place among the records; this mesh casts no shadow from the light.
  std::optional<std::size_t> mesh;
  const AnimationTrack* track = nullptr;
};

/// The first mesh whose id, else whose shapeId, is the light's id, else the track with that
/// target. Nothing where there is neither: such a light is left out.
std::optional<LightPlacement> placeLight(const PhotometryLight& light, const BakeBundle& bundle);

/// What is told of a light that is left out.
std::string unplacedLightNotice(const PhotometryLight& light);

}  // namespace renderkit
