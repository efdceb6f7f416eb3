#pragma once

#include "renderkit/picture/DirectLight.h"
#include "renderkit/picture/EmbreeScene.h"
#include "renderkit/picture/LitPoints.h"
#include "renderkit/picture/RayQueue.h"
#include "renderkit/picture/Sampler.h"

#include <span>
#include <vector>

namespace renderkit::picture {

struct Quality {
  /// Soft shadows, one bounce, depth of field and motion blur.
  bool rayTraced = false;
  int samples = 4;
};

struct Pixel {
  std::uint16_t x, y;
};

/// What a pixel shows, to find those at the edge of a shadow: they differ from a neighbour in
/// the light on the same surface.
struct PixelMark {
  static constexpr std::uint32_t mixed = ~0u;
  std::uint32_t surface = mixed;
  std::uint32_t light = 0;
};

/// Renders pixels into linear colour. One for each worker; it holds the memory for a batch of rays.
class TileRenderer {
 public:
  TileRenderer(const EmbreeScene& scene, int width, int height, Quality quality);

  enum class Shading {
    /// Once for each surface in a pixel.
    shared,
    /// Once for each sample.
    each,
  };
  /// The linear colour of each pixel as the picture shows it, before the tone curve. `marks`
  /// has one for each of `pixels` that were shared, or is empty.
  void render(const View& view, std::span<const Pixel> pixels, Shading shading, Vector3* colors,
              std::span<PixelMark> marks);

 private:
  void aim(std::span<const Pixel> pixels, std::size_t first, std::size_t count);
  Sample2 onPixel(std::uint32_t seed, std::uint32_t sample) const;
  CameraPose pose(float time) const;

  /// Follows the rays of a queue through everything that is not opaque; depth 1 is a bounce.
  void follow(RayQueue& rays, RayQueue& onwards, LitPoints& points, int depth, Shading shading);
  void collect(const RayQueue& rays, RayQueue& onwards, LitPoints& points, int depth, Shading shading);
  bool collectShared(const RayQueue& rays, std::size_t first, LitPoints& points);
  bool isOneSurface(const RayQueue& rays, std::size_t first) const;
  void meet(const RayQueue& rays, std::size_t i, RayQueue& onwards, LitPoints& points, int depth);
  void light(LitPoints& points, int depth);
  void bounce(const LitPoints& points);

  const EmbreeScene& scene_;
  int width_, height_;
  Quality quality_;
  Sampler sampler_;
  DirectLight direct_;
  std::vector<Sample2> fixedPlaces_;

  const View* view_ = nullptr;
  Vector3* colors_ = nullptr;
  std::span<PixelMark> marks_;
  std::vector<std::uint32_t> seeds_;
  RayQueue primary_, primaryOnwards_, bounced_, bouncedOnwards_;
  std::unique_ptr<LitPoints> points_, bouncedPoints_;
};

}  // namespace renderkit::picture
