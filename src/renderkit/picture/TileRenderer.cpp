#include "renderkit/picture/TileRenderer.h"

#include "renderkit/picture/Hit.h"

#include <numbers>

namespace renderkit::picture {
namespace {

/// More surfaces than this in a row are not looked through.
constexpr int mostLayers = 64;
/// A bounce adds no more than this to a picture's linear value, which keeps single sparks out.
constexpr float brightestBounce = 4;
constexpr float inversePi = std::numbers::inv_pi_v<float>;

std::vector<Sample2> placesInPixel(int samples) {
  // Four on a turned square meet upright and level edges at four different places.
  if (samples == 4) return {{0.375f, 0.125f}, {0.875f, 0.375f}, {0.125f, 0.625f}, {0.625f, 0.875f}};
  if (samples == 1) return {{0.5f, 0.5f}};
  std::vector<Sample2> places;
  const Sampler sampler(static_cast<std::uint32_t>(samples));
  for (int i = 0; i < samples; ++i)
    places.push_back(sampler.pair(0, static_cast<std::uint32_t>(i), Sampler::pixel));
  return places;
}

CameraPose mixed(const CameraPose& a, const CameraPose& b, float t) {
  return {mix(a.position, b.position, t), normalized(mix(a.right, b.right, t)),
          normalized(mix(a.up, b.up, t)), normalized(mix(a.back, b.back, t))};
}

}  // namespace

TileRenderer::TileRenderer(const EmbreeScene& scene, int width, int height, Quality quality)
    : scene_(scene),
      width_(width),
      height_(height),
      quality_(quality),
      sampler_(static_cast<std::uint32_t>(quality.samples)),
      direct_(scene, sampler_, quality.rayTraced),
      points_(std::make_unique<LitPoints>()) {
  if (!quality.rayTraced) fixedPlaces_ = placesInPixel(quality.samples);
  if (quality.rayTraced) bouncedPoints_ = std::make_unique<LitPoints>();
}

void TileRenderer::render(const View& view, std::span<const Pixel> pixels, Shading shading, Vector3* colors,
                          std::span<PixelMark> marks) {
  view_ = &view;
  colors_ = colors;
  marks_ = marks;
  seeds_.clear();
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    colors[i] = {};
    seeds_.push_back(quality_.rayTraced ? Sampler::seed(pixels[i].x, pixels[i].y, view.frame) : 0);
  }
  const auto samples = static_cast<std::size_t>(quality_.samples);
  // Whole pixels in a batch, where one fits.
  const auto batch =
      samples > RayQueue::capacity ? RayQueue::capacity : RayQueue::capacity / samples * samples;
  const auto total = pixels.size() * samples;
  for (std::size_t first = 0; first < total; first += batch) {
    aim(pixels, first, std::min(batch, total - first));
    follow(primary_, primaryOnwards_, *points_, 0, samples > RayQueue::capacity ? Shading::each : shading);
  }
  for (std::size_t i = 0; i < pixels.size(); ++i) colors[i] = colors[i] * view.scale;
}

Sample2 TileRenderer::onPixel(std::uint32_t seed, std::uint32_t sample) const {
  return quality_.rayTraced ? sampler_.pair(seed, sample, Sampler::pixel) : fixedPlaces_[sample];
}

CameraPose TileRenderer::pose(float time) const {
  const auto& poses = view_->camera.poses;
  return time < 0.5f ? mixed(poses[0], poses[1], 2 * time) : mixed(poses[1], poses[2], 2 * time - 1);
}

void TileRenderer::aim(std::span<const Pixel> pixels, std::size_t first, std::size_t count) {
  const auto& camera = view_->camera;
  const auto samples = static_cast<std::size_t>(quality_.samples);
  const float step = 2 * camera.tangent / static_cast<float>(height_);
  const float left = -0.5f * step * static_cast<float>(width_);
  const float weight = 1 / static_cast<float>(samples);
  const bool sharp = !quality_.rayTraced || !(camera.lensRadius > 0);
  auto at = camera.poses[1];
  float time = 0.5f;
  primary_.clear();
  auto pixel = first / samples;
  auto sample = static_cast<std::uint32_t>(first % samples);
  for (std::size_t r = 0; r < count; ++r, ++sample) {
    if (sample == samples) ++pixel, sample = 0;
    const auto seed = seeds_[pixel];
    if (quality_.rayTraced) {
      time = sampler_.pair(seed, sample, Sampler::time).u;
      at = pose(time);
    }
    const auto place = onPixel(seed, sample);
    const float x = left + step * (static_cast<float>(pixels[pixel].x) + place.u);
    const float y = camera.tangent - step * (static_cast<float>(pixels[pixel].y) + place.v);
    auto origin = at.position;
    // One metre deep, so that a hit's distance is its depth.
    auto direction = at.right * x + at.up * y - at.back;
    if (!sharp) {
      const auto [u, v] = onDisc(sampler_.pair(seed, sample, Sampler::lens));
      const auto aside = (at.right * u + at.up * v) * camera.lensRadius;
      origin += aside;
      direction = direction - aside * (1 / camera.focusDistance);
    }
    primary_.add(origin, direction, 0, time, {weight, weight, weight},
                 {static_cast<std::uint16_t>(pixel), static_cast<std::uint16_t>(sample)});
  }
}

void TileRenderer::follow(RayQueue& rays, RayQueue& onwards, LitPoints& points, int depth, Shading shading) {
  auto* now = &rays;
  auto* next = &onwards;
  for (int layer = 0; layer < mostLayers && now->size() > 0; ++layer) {
    now->intersect(scene_.handle(),
                   depth == 0 ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT);
    next->clear();
    points.size = 0;
    collect(*now, *next, points, depth, layer == 0 ? shading : Shading::each);
    light(points, depth);
    std::swap(now, next);
  }
}

void TileRenderer::collect(const RayQueue& rays, RayQueue& onwards, LitPoints& points, int depth,
                           Shading shading) {
  const auto samples = static_cast<std::size_t>(quality_.samples);
  for (std::size_t i = 0; i < rays.size();) {
    if (shading == Shading::shared && collectShared(rays, i, points)) {
      i += samples;
      continue;
    }
    const auto end = shading == Shading::shared ? i + samples : i + 1;
    for (; i < end; ++i) meet(rays, i, onwards, points, depth);
  }
}

bool TileRenderer::isOneSurface(const RayQueue& rays, std::size_t first) const {
  const auto samples = static_cast<std::size_t>(quality_.samples);
  const auto instance = rays.instance(first);
  const auto triangle = rays.triangle(first);
  bool same = true;
  for (std::size_t i = first + 1; i < first + samples; ++i) {
    if (rays.instance(i) != instance) return false;
    same &= rays.triangle(i) == triangle;
  }
  if (same) return true;
  // Several triangles of one mesh: one surface where they are level and near each other.
  constexpr float levelSquared = 0.95f * 0.95f;
  const auto& surface = scene_.surface(instance);
  const auto n = rays.normal(first);
  const auto face = normalized(surface.normalsToWorld.direction(n));
  const auto place = rays.direction(first) * rays.distance(first);
  const float near = 2 * view_->camera.tangent / static_cast<float>(height_) * rays.distance(first);
  for (std::size_t i = first + 1; i < first + samples; ++i) {
    const auto m = rays.normal(i);
    const float along = dot(n, m);
    if (!(along > 0) || along * along < levelSquared * dot(n, n) * dot(m, m)) return false;
    if (std::abs(dot(rays.direction(i) * rays.distance(i) - place, face)) > near) return false;
  }
  return true;
}

bool TileRenderer::collectShared(const RayQueue& rays, std::size_t first, LitPoints& points) {
  const auto samples = static_cast<std::size_t>(quality_.samples);
  if (!rays.hasHit(first) || !isOneSurface(rays, first)) return false;
  const auto instance = rays.instance(first);
  const auto& surface = scene_.surface(instance);
  const auto& material = *surface.material;
  if (material.isVeil()) return false;
  const auto direction = rays.direction(first);
  auto face = normalized(surface.normalsToWorld.direction(rays.normal(first)));
  const bool turned = dot(face, direction) > 0;
  if (turned && !material.doubleSided) return false;
  if (turned) face = -face;
  auto albedo = material.albedo;
  if (material.texture) {
    const float width = 2 * view_->camera.tangent / static_cast<float>(height_) * rays.distance(first);
    const float footprint = 0.5f * footprintOnTexture(surface, rays.triangle(first), width);
    Vector3 sum;
    for (std::size_t i = first; i < first + samples; ++i) {
      const auto [u, v] = uvOf(surface, rays.triangle(i), rays.u(i), rays.v(i));
      sum += material.texture->at(u, v, footprint).color;
    }
    albedo = albedo * sum * (1 / static_cast<float>(samples));
  }
  const auto normal = shadingNormal(surface, rays.triangle(first), rays.u(first), rays.v(first),
                                    rays.normal(first), face, turned);
  const auto owner = rays.owner(first);
  if (!marks_.empty()) marks_[owner.pixel].surface = instance;
  points.add(rays.origin(first) + direction * rays.distance(first), normal, face, rays.time(first), albedo,
             owner);
  return true;
}

void TileRenderer::meet(const RayQueue& rays, std::size_t i, RayQueue& onwards, LitPoints& points,
                        int depth) {
  const auto owner = rays.owner(i);
  const auto weight = rays.weight(i);
  if (!rays.hasHit(i)) {
    colors_[owner.pixel] += weight * view_->sky(rays.direction(i));
    return;
  }
  const auto& surface = scene_.surface(rays.instance(i));
  const auto& material = *surface.material;
  const auto direction = rays.direction(i);
  const float distance = rays.distance(i);
  const auto origin = rays.origin(i);
  auto face = normalized(surface.normalsToWorld.direction(rays.normal(i)));
  const bool turned = dot(face, direction) > 0;
  if (turned) face = -face;
  float opacity = material.opacity;
  auto albedo = material.albedo;
  if (material.texture) {
    const float width = 2 * view_->camera.tangent / static_cast<float>(height_) * distance;
    const auto [u, v] = uvOf(surface, rays.triangle(i), rays.u(i), rays.v(i));
    const auto texel =
        material.texture->at(u, v, 0.5f * footprintOnTexture(surface, rays.triangle(i), width));
    albedo = albedo * texel.color;
    opacity *= texel.alpha;
  }
  // The back of a single-sided surface is not seen, but it gives its light to others.
  if (turned && !material.doubleSided && depth == 0) opacity = 0;
  const auto place = origin + direction * distance;
  if (opacity < 1) {
    const float from = distance + (1e-4f + 4e-6f * largest(place)) / length(direction);
    onwards.add(origin, direction, from, rays.time(i), weight * (1 - opacity), owner);
  }
  if (!(opacity > 0)) return;
  const auto normal =
      shadingNormal(surface, rays.triangle(i), rays.u(i), rays.v(i), rays.normal(i), face, turned);
  points.add(place, normal, face, rays.time(i), weight * albedo * std::min(opacity, 1.0f), owner);
}

void TileRenderer::light(LitPoints& points, int depth) {
  direct_.gather(points, view_->lights, seeds_.data(), depth == 0 ? Sampler::lights : Sampler::bounceLights);
  // Rays gather the surroundings' light at the first surface, and take it as even at the second.
  const bool bounces = quality_.rayTraced && depth == 0;
  const float brightest = brightestBounce / (view_->scale * static_cast<float>(quality_.samples));
  for (std::size_t i = 0; i < points.size; ++i) {
    const auto pixel = points.owner[i].pixel;
    auto color = points.weight[i] *
                 (points.lux(i) + (bounces ? Vector3{} : view_->ambientOn(points.normal(i)))) * inversePi;
    const float strongest = largest(color);
    if (depth > 0 && strongest > brightest) color = color * (brightest / strongest);
    colors_[pixel] += color;
    if (!marks_.empty()) marks_[pixel].light = points.pattern[i];
  }
  if (bounces) bounce(points);
}

void TileRenderer::bounce(const LitPoints& points) {
  bounced_.clear();
  for (std::size_t i = 0; i < points.size; ++i) {
    const auto owner = points.owner[i];
    const auto square = sampler_.pair(seeds_[owner.pixel], owner.sample, Sampler::bounce);
    const auto [u, v] = onDisc(square);
    const auto n = points.normal(i), face = points.face(i);
    const Frame frame(n);
    auto direction = frame.a * u + frame.b * v + n * std::sqrt(std::max(0.0f, 1 - u * u - v * v));
    const float behind = dot(direction, face);
    if (behind < 0) direction = direction - face * (2 * behind);
    bounced_.add(points.liftedPlace(i), direction, 0, points.time[i], points.weight[i], owner);
  }
  follow(bounced_, bouncedOnwards_, *bouncedPoints_, 1, Shading::each);
}

}  // namespace renderkit::picture
