#include "renderkit/picture/ShotCamera.h"

#include "renderkit/shot/TransformReplay.h"

#include <numbers>

namespace renderkit::picture {
namespace {

/// Metres: the height of the frame that lenses are reckoned for.
constexpr double sensorHeight = 0.01866;
constexpr double overviewFov = 40;

CameraPose poseOf(TransformSample sample) {
  const double norm = std::sqrt(sample.qx * sample.qx + sample.qy * sample.qy + sample.qz * sample.qz +
                                sample.qw * sample.qw);
  if (norm > 0) sample.qx /= norm, sample.qy /= norm, sample.qz /= norm, sample.qw /= norm;
  const Affine pose(TransformReplay::matrix(sample));
  return {pose.origin, pose.x, pose.y, pose.z};
}

bool isUsable(const CameraFrameSample& sample) {
  const auto pose = poseOf(sample.pose);
  return isFinite(pose.position) && isFinite(pose.right) && isFinite(pose.up) && isFinite(pose.back) &&
         length(pose.back) > 0.5f && sample.fovDeg > 0 && sample.fovDeg < 180;
}

float tangentOf(double fovDeg) {
  return static_cast<float>(std::tan(fovDeg * std::numbers::pi / 360));
}

}  // namespace

TransformSample between(const TransformSample& a, const TransformSample& b, double t) {
  if (a == b) return a;
  const double cosine = a.qx * b.qx + a.qy * b.qy + a.qz * b.qz + a.qw * b.qw;
  const double angle = std::acos(std::min(std::abs(cosine), 1.0));
  double first = 1 - t, second = t;
  if (angle > 1e-4) {
    first = std::sin((1 - t) * angle) / std::sin(angle);
    second = std::sin(t * angle) / std::sin(angle);
  }
  if (cosine < 0) second = -second;
  return {std::lerp(a.px, b.px, t),     std::lerp(a.py, b.py, t),     std::lerp(a.pz, b.pz, t),
          first * a.qx + second * b.qx, first * a.qy + second * b.qy, first * a.qz + second * b.qz,
          first * a.qw + second * b.qw};
}

ShotCamera::ShotCamera(const CameraTrack* track, std::optional<Bounds> overall, float aspect, double shutter,
                       double tStop, Notices& notices)
    : track_(track && !track->perFrame.empty() ? track : nullptr),
      overall_(overall),
      aspect_(aspect),
      shutter_(shutter),
      tStop_(tStop),
      notices_(notices) {}

Camera ShotCamera::at(std::int64_t frame) const {
  if (track_ == nullptr) return overview();
  const auto before = *TransformReplay::sample(*track_, frame - 1),
             now = *TransformReplay::sample(*track_, frame);
  const auto after = *TransformReplay::sample(*track_, frame + 1);
  if (!isUsable(now)) {
    notices_.add("the camera \"" + track_->cameraId +
                 "\" has a pose or field of view that is not one; "
                 "its place is taken by an overall view");
    return overview();
  }
  Camera camera;
  const double open = isUsable(before) && isUsable(after) ? shutter_ / 2 : 0;
  camera.poses = {poseOf(between(now.pose, before.pose, open)), poseOf(now.pose),
                  poseOf(between(now.pose, after.pose, open))};
  camera.tangent = tangentOf(now.fovDeg);
  if (now.focusDistanceM && *now.focusDistanceM > 0 && std::isfinite(*now.focusDistanceM) && tStop_ > 0) {
    const double focalLength = sensorHeight / 2 / std::tan(now.fovDeg * std::numbers::pi / 360);
    camera.lensRadius = static_cast<float>(focalLength / (2 * tStop_));
    camera.focusDistance = static_cast<float>(*now.focusDistanceM);
  }
  return camera;
}

Camera ShotCamera::overview() const {
  Camera camera;
  camera.tangent = tangentOf(overviewFov);
  const Bounds box = overall_.value_or(Bounds{{-1, -1, -1}, {1, 1, 1}});
  const auto centre = (box.lower + box.upper) * 0.5f;
  const float radius = std::max(length(box.upper - box.lower) / 2, 0.01f);
  CameraPose pose;
  pose.back = normalized({1, 0.6f, 1});
  pose.right = normalized(cross({0, 1, 0}, pose.back));
  pose.up = cross(pose.back, pose.right);
  const float narrowest = std::atan(camera.tangent * std::min(aspect_, 1.0f));
  pose.position = centre + pose.back * (radius / std::sin(narrowest));
  camera.poses = {pose, pose, pose};
  return camera;
}

}  // namespace renderkit::picture
