#include "renderkit/shot/TransformReplay.h"

#include <algorithm>
#include <vector>

namespace renderkit::TransformReplay {
namespace {

/// The sample at a frame, clamped to those there are; `perFrame` is not empty.
template <class Sample>
const Sample& held(const std::vector<Sample>& perFrame, std::int64_t frame) {
  const auto last = static_cast<std::int64_t>(perFrame.size()) - 1;
  return perFrame[static_cast<std::size_t>(std::clamp<std::int64_t>(frame, 0, last))];
}

}  // namespace

TransformSample sample(const AnimationTrack& track, std::int64_t frame) {
  return track.perFrame.empty() ? TransformSample{} : held(track.perFrame, frame);
}

std::optional<CameraFrameSample> sample(const CameraTrack& track, std::int64_t frame) {
  if (track.perFrame.empty()) return std::nullopt;
  return held(track.perFrame, frame);
}

Matrix4 matrix(const TransformSample& sample) {
  const auto x = static_cast<float>(sample.qx), y = static_cast<float>(sample.qy);
  const auto z = static_cast<float>(sample.qz), w = static_cast<float>(sample.qw);
  Matrix4 matrix;
  matrix.m = {1 - 2 * (y * y + z * z),       2 * (x * y + w * z),           2 * (x * z - w * y),           0,
              2 * (x * y - w * z),           1 - 2 * (x * x + z * z),       2 * (y * z + w * x),           0,
              2 * (x * z + w * y),           2 * (y * z - w * x),           1 - 2 * (x * x + y * y),       0,
              static_cast<float>(sample.px), static_cast<float>(sample.py), static_cast<float>(sample.pz), 1};
  return matrix;
}

}  // namespace renderkit::TransformReplay
