#pragma once

#include "renderkit/picture/EmbreeScene.h"

namespace renderkit::picture {

/// Sends shadow rays to a light, eight at a time, and tells how much of it arrives: surfaces
/// that are not opaque lighten the shadow, and the light's own mesh throws none.
class Veils {
 public:
  /// `light` and the scene outlive it.
  Veils(const EmbreeScene& scene, const Light& light);

  /// Traces the rays whose entry of `valid` is -1; their ids must be their places. Each gets what
  /// arrives, 0 to 1. A closed mesh that is not double-sided counts once, as the camera sees it.
  void trace(const int* valid, RTCRay8& rays, float* arriving);

  /// Embree calls it for meshes that need it. The context must be that of a Veils.
  static void filter(const RTCFilterFunctionNArguments* arguments);

 private:
  /// What one single-sided mesh has let through so far, at its front and at its back.
  struct Pane {
    std::uint32_t instance;
    float front, back;
  };
  struct Lane {
    std::array<Pane, 4> panes;
    std::size_t count = 0;
    float through = 1;
  };
  /// Embree's context comes first, so that the filter finds the rest behind it.
  struct Context {
    RTCIntersectContext base;
    Veils* self;
  };

  /// Whether the light passes this hit.
  bool passes(const RTCFilterFunctionNArguments& arguments, unsigned lane);
  void dim(Lane& lane, std::uint32_t instance, bool fromFront, float share);

  const EmbreeScene& scene_;
  const Light& light_;
  Context context_;
  std::array<Lane, 8> lanes_;
};

}  // namespace renderkit::picture
