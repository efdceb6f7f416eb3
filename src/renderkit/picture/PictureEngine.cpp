#include "renderkit/picture/PictureEngine.h"

#include "renderkit/Failure.h"

#include <array>

namespace renderkit::picture {
namespace {

constexpr int tileSide = 16;

}  // namespace

/// The pixels of one tile, which at the edges of the picture is smaller than the others.
struct PictureEngine::Tile {
  std::array<Pixel, tileSide * tileSide> pixels;
  std::array<Vector3, tileSide * tileSide> colors;
  std::size_t size = 0;

  void add(int x, int y) { pixels[size++] = {static_cast<std::uint16_t>(x), static_cast<std::uint16_t>(y)}; }
  void write(const ToneCurve& tones, PixelBuffer& picture) const {
    for (std::size_t i = 0; i < size; ++i) tones.write(colors[i], picture.row(pixels[i].y) + 4 * pixels[i].x);
  }
};

PictureEngine::PictureEngine(const EmbreeScene& scene, Workers& workers, int width, int height,
                             Quality quality)
    : workers_(workers), width_(width), height_(height), quality_(quality) {
  for (std::size_t i = 0; i < workers.count(); ++i) {
    renderers_.push_back(std::make_unique<TileRenderer>(scene, width, height, quality));
  }
  if (!quality.rayTraced) marks_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
}

void PictureEngine::render(const View& view, PixelBuffer& picture, const std::stop_token& stop) {
  const auto side = static_cast<std::size_t>(tileSide);
  const auto across = (static_cast<std::size_t>(width_) + side - 1) / side;
  const auto down = (static_cast<std::size_t>(height_) + side - 1) / side;
  workers_.run(across * down, [&](std::size_t index, std::size_t worker) {
    checkCancellation(stop);
    renderTile(view, picture, index, worker);
  });
  if (quality_.rayTraced) return;
  workers_.run(across * down, [&](std::size_t index, std::size_t worker) {
    checkCancellation(stop);
    refineTile(view, picture, index, worker);
  });
}

PictureEngine::Tile PictureEngine::tile(std::size_t index) const {
  const int across = (width_ + tileSide - 1) / tileSide;
  const int left = static_cast<int>(index) % across * tileSide,
            top = static_cast<int>(index) / across * tileSide;
  Tile tile;
  for (int y = top; y < std::min(top + tileSide, height_); ++y) {
    for (int x = left; x < std::min(left + tileSide, width_); ++x) tile.add(x, y);
  }
  return tile;
}

void PictureEngine::renderTile(const View& view, PixelBuffer& picture, std::size_t index,
                               std::size_t worker) {
  auto here = tile(index);
  const std::span pixels(here.pixels.data(), here.size);
  std::array<PixelMark, tileSide * tileSide> marks;
  const auto shading = quality_.rayTraced ? TileRenderer::Shading::each : TileRenderer::Shading::shared;
  const auto used =
      quality_.rayTraced ? std::span<PixelMark>() : std::span<PixelMark>(marks.data(), here.size);
  renderers_[worker]->render(view, pixels, shading, here.colors.data(), used);
  here.write(tones_, picture);
  for (std::size_t i = 0; i < used.size(); ++i) mark(pixels[i].x, pixels[i].y) = used[i];
}

void PictureEngine::refineTile(const View& view, PixelBuffer& picture, std::size_t index,
                               std::size_t worker) {
  const auto all = tile(index);
  Tile edges;
  for (std::size_t i = 0; i < all.size; ++i) {
    if (isEdge(all.pixels[i].x, all.pixels[i].y)) edges.add(all.pixels[i].x, all.pixels[i].y);
  }
  if (edges.size == 0) return;
  const std::span<const Pixel> pixels(edges.pixels.data(), edges.size);
  renderers_[worker]->render(view, pixels, TileRenderer::Shading::each, edges.colors.data(), {});
  edges.write(tones_, picture);
}

bool PictureEngine::isEdge(int x, int y) const {
  const auto& here = mark(x, y);
  if (here.surface == PixelMark::mixed) return false;
  const int left = std::max(x - 1, 0), right = std::min(x + 1, width_ - 1);
  const auto differs = [&here](const PixelMark& there) {
    return there.light != here.light && there.surface == here.surface;
  };
  bool edge = false;
  for (int v = std::max(y - 1, 0); v <= std::min(y + 1, height_ - 1); ++v) {
    const auto* row = &mark(0, v);
    edge |= differs(row[left]) || differs(row[x]) || differs(row[right]);
  }
  return edge;
}

}  // namespace renderkit::picture
