#pragma once

#include "renderkit/picture/EmbreeScene.h"
#include "renderkit/picture/TileRenderer.h"
#include "renderkit/picture/ToneCurve.h"
#include "renderkit/picture/Workers.h"
#include "renderkit/video/PixelBuffer.h"

#include <stop_token>
#include <vector>

namespace renderkit::picture {

/// Renders views of a scene into pictures of one size. The bytes depend on the scene and the
/// view alone, not on the number of workers.
class PictureEngine {
 public:
  /// Scene and workers outlive it.
  PictureEngine(const EmbreeScene& scene, Workers& workers, int width, int height, Quality quality);

  /// Fills every pixel. Throws CancelledFailure when a stop is requested.
  void render(const View& view, PixelBuffer& picture, const std::stop_token& stop);

 private:
  struct Tile;

  Tile tile(std::size_t index) const;
  void renderTile(const View& view, PixelBuffer& picture, std::size_t index, std::size_t worker);
  void refineTile(const View& view, PixelBuffer& picture, std::size_t index, std::size_t worker);
  bool isEdge(int x, int y) const;
  PixelMark& mark(int x, int y) {
    return marks_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                  static_cast<std::size_t>(x)];
  }
  const PixelMark& mark(int x, int y) const { return const_cast<PictureEngine*>(this)->mark(x, y); }

  Workers& workers_;
  int width_, height_;
  Quality quality_;
  ToneCurve tones_;
  std::vector<std::unique_ptr<TileRenderer>> renderers_;
  /// One for each pixel, where edges are refined; else empty.
  std::vector<PixelMark> marks_;
};

}  // namespace renderkit::picture
