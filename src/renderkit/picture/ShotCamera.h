#pragma once

#include "renderkit/picture/EmbreeScene.h"
#include "renderkit/picture/Scene.h"
#include "renderkit/shot/FrameSource.h"

#include <cstdint>
#include <optional>

namespace renderkit::picture {

/// The camera of a shot at each frame, with its movement while the shutter is open.
class ShotCamera {
 public:
  /// `overall` is the scene's extent, for a three-quarter view where there is no camera. `shutter`
  /// is the part of a frame that the shutter is open; `tStop` above 0 gives depth of field where the
  /// camera has a focus distance. The track must outlive it.
  ShotCamera(const CameraTrack* track, std::optional<Bounds> overall, float aspect, double shutter,
             double tStop, Notices& notices);

  Camera at(std::int64_t frame) const;

 private:
  Camera overview() const;

  const CameraTrack* track_;
  std::optional<Bounds> overall_;
  float aspect_;
  double shutter_, tStop_;
  Notices& notices_;
};

/// Between two poses: the place evenly, the rotation along the shorter way.
TransformSample between(const TransformSample& a, const TransformSample& b, double t);

}  // namespace renderkit::picture
