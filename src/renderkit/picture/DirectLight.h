#pragma once

#include "renderkit/picture/EmbreeScene.h"
#include "renderkit/picture/LitPoints.h"
#include "renderkit/picture/Sampler.h"

namespace renderkit::picture {

/// Sideways vectors of a direction: with it they stand at right angles to each other.
struct Frame {
  Vector3 a, b;
  explicit Frame(const Vector3& n);
};

/// A place on the unit disc.
Sample2 onDisc(Sample2 square);

/// Adds what the lights give to points. One for each worker.
class DirectLight {
 public:
  /// All outlive it. With `soft` the lights have a size.
  DirectLight(const EmbreeScene& scene, const Sampler& sampler, bool soft)
      : scene_(scene), sampler_(sampler), soft_(soft) {}

  /// `seeds` has one for each pixel of the batch; `dimension` is the first light's.
  void gather(LitPoints& points, const std::vector<Light>& lights, const std::uint32_t* seeds,
              std::uint32_t dimension);

 private:
  void weigh(const LitPoints& points, const Light& light);
  void weighDirectional(const LitPoints& points, const Light& light);
  void weighSpot(const LitPoints& points, const Light& light);
  void shade(const LitPoints& points, const Light& light, const std::uint32_t* seeds,
             std::uint32_t dimension);
  Vector3 towards(const LitPoints& points, std::size_t i, const Light& light, const Vector3& from,
                  const std::uint32_t* seeds, std::uint32_t dimension) const;

  const EmbreeScene& scene_;
  const Sampler& sampler_;
  bool soft_;
  /// For each point, the share of the light's strength that falls on it, and of that what arrives.
  alignas(32) LitPoints::Field weight_, arriving_;
  std::array<std::uint16_t, RayQueue::capacity> lit_;
};

}  // namespace renderkit::picture
