#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace renderkit {

/// A place in metres and a unit quaternion. In JSON an array of these seven numbers in this order.
struct TransformSample {
  double px = 0, py = 0, pz = 0;
  double qx = 0, qy = 0, qz = 0, qw = 1;
  bool operator==(const TransformSample&) const = default;
};

/// The poses of one scene shape, one for each frame; a short track holds its last.
struct AnimationTrack {
  /// The shapeId of the meshes that it moves.
  std::string targetId;
  std::vector<TransformSample> perFrame;
  bool operator==(const AnimationTrack&) const = default;
};

struct CameraFrameSample {
  /// The camera looks along its own -Z, y up.
  TransformSample pose;
  /// Vertical field of view.
  double fovDeg = 0;
  std::optional<double> focusDistanceM;
  bool operator==(const CameraFrameSample&) const = default;
};

struct CameraTrack {
  std::string cameraId;
  std::string slate;
  /// A reference camera: chosen only when there is no other.
  bool isRef = false;
  std::vector<CameraFrameSample> perFrame;
  bool operator==(const CameraTrack&) const = default;
};

/// "animation.json".
struct BakeAnimationDoc {
  std::int64_t frameCount = 0;
  std::vector<double> frameTimesS;
  std::vector<AnimationTrack> tracks;
  std::vector<CameraTrack> cameras;
  bool operator==(const BakeAnimationDoc&) const = default;
};

}  // namespace renderkit
