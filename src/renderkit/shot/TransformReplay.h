#pragma once

#include "renderkit/bundle/BakeAnimation.h"
#include "renderkit/shot/Matrix4.h"

#include <cstdint>
#include <optional>

namespace renderkit::TransformReplay {

/// The pose at a frame; a short track holds its last, an empty one gives the origin.
TransformSample sample(const AnimationTrack& track, std::int64_t frame);

/// The camera at a frame; nothing for an empty track.
std::optional<CameraFrameSample> sample(const CameraTrack& track, std::int64_t frame);

/// Rotation and place as a matrix. Numbers are narrowed to 32 bits first.
Matrix4 matrix(const TransformSample& sample);

}  // namespace renderkit::TransformReplay
