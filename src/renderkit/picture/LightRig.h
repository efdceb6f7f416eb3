#pragma once

#include "renderkit/picture/Exposure.h"
#include "renderkit/picture/Scene.h"
#include "renderkit/shot/FrameSource.h"
#include "renderkit/shot/LightPlacement.h"

#include <cstdint>
#include <vector>

namespace renderkit::picture {

/// The shot's photometry as lights in the scene. It refers to the set-up, which must outlive it.
class LightRig {
 public:
  /// Lights that cannot be used are left out, each with a notice. Without any light or ambient
  /// there is a neutral dome, as bright as the exposure is metered for, with a notice.
  LightRig(const FrameSourceSetup& setup, const Exposure& exposure);

  /// The lights that shine at a frame.
  std::vector<Light> at(std::int64_t frame) const;
  /// In linear colour times lux, and its slope, as in View.
  const Vector3& ambient() const { return ambient_; }
  float slope() const { return slope_; }
  /// The meshes that some light stands in.
  std::vector<std::uint32_t> fixtures() const;

 private:
  struct Practical {
    Light light;
    LightPlacement placement;
    float height, aim;
  };

  void addSun(const PhotometrySun& sun);
  void addPractical(const PhotometryLight& light);
  void leaveOut(const std::string& what);
  Matrix4 node(const LightPlacement& placement, std::int64_t frame) const;

  const FrameSourceSetup setup_;
  std::vector<Light> suns_;
  std::vector<Practical> practicals_;
  Vector3 ambient_;
  float slope_ = 0;
};

}  // namespace renderkit::picture
