// What a picture costs: against the same scene's rays alone, in memory, and from a bundle's bytes to the
// first frame.
#include "bench/Measure.h"
#include "renderkit/PictureStage.h"
#include "renderkit/picture/PictureEngine.h"
#include "renderkit/shot/BundleSceneBuilder.h"
#include "renderkit/shot/Shot.h"
#include "renderkit/video/PixelBufferFactory.h"

#include <embree3/rtcore.h>
#include <fmt/format.h>
#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <numbers>
#include <string>

namespace renderkit {
namespace {

using picture::Vector3;

double cpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

template <class Work>
double cpuFor(Work&& work) {
  const double start = cpuSeconds();
  work();
  return cpuSeconds() - start;
}

long peakKilobytes() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

/// A ground and a hundred balls of 1000 triangles each, with meshes of their own; or `detail`
/// times as many. A sun and two spots throw shadows.
void addScene(test::PictureStage& stage, int width, int height, int detail) {
  stage.bundle.manifest.width = width;
  stage.bundle.manifest.height = height;
  stage.bundle.manifest.frameCount = 1000;
  stage.quad("ground", {{-30, 0, 30}, {30, 0, 30}, {30, 0, -30}, {-30, 0, -30}}, "#909080");
  const auto around = static_cast<std::uint32_t>(25 * detail), down = 21u;
  for (int ball = 0; ball < 100; ++ball) {
    const float radius = 0.35f + 0.1f * static_cast<float>(ball % 4);
    std::vector<float> positions;
    std::vector<std::uint32_t> indices;
    for (std::uint32_t j = 0; j <= down; ++j) {
      for (std::uint32_t i = 0; i <= around; ++i) {
        const float a = 2 * std::numbers::pi_v<float> * static_cast<float>(i) / static_cast<float>(around);
        const float b = std::numbers::pi_v<float> * static_cast<float>(j) / static_cast<float>(down);
        positions.insert(positions.end(), {radius * std::sin(b) * std::cos(a), radius * std::cos(b),
                                           -radius * std::sin(b) * std::sin(a)});
        if (i == around || j == down) continue;
        const auto p = j * (around + 1) + i, q = p + around + 1;
        if (j > 0) indices.insert(indices.end(), {p, q, p + 1});
        if (j + 1 < down) indices.insert(indices.end(), {p + 1, q, q + 1});
      }
    }
    auto& mesh = stage.mesh("ball" + std::to_string(ball), positions, indices);
    mesh.localMatrix[12] = 1.3 * (ball % 10) - 6;
    mesh.localMatrix[13] = radius;
    mesh.localMatrix[14] = -1.3 * (ball / 10);
    mesh.shapeId = mesh.id;
    stage.track(mesh.id, {{}, {.px = 0.01}});
  }
  stage.sun(150, 40, 0.5);
  for (const double x : {-4.0, 4.0}) {
    const auto id = fmt::format("spot{}", x);
    stage.track(id, {{.px = x, .pz = 4}});
    stage.bundle.photometry.lights.push_back({.id = id,
                                              .luxAt10ft = 300,
                                              .beamAngleDeg = 60,
                                              .dimmer = 1,
                                              .colorHex = "#ffe0c0",
                                              .penumbra = 0.3,
                                              .heightM = 5,
                                              .aimAngleRad = 0.6,
                                              .lightOn = true});
  }
  stage.camera() = {.pose = {.py = 3.5, .pz = 9, .qx = -0.16, .qw = 0.987}, .fovDeg = 40};
}

/// A bundle's scene, ready to render without the burn-ins.
struct Ready {
  explicit Ready(test::PictureStage& stage)
      : size{static_cast<int>(stage.bundle.manifest.width), static_cast<int>(stage.bundle.manifest.height)},
        shot(stage.bundle, stage.options, stage.notices) {
    shot.prepare(makePictureSource);
  }
  struct {
    int width, height;
  } size;
  Shot shot;
};

/// The rays of one frame and nothing else: four a pixel in packets of two pixels, then one shadow
/// ray for each surface in a pixel and each light that could reach it. Those that refine the edges
/// of shadows are not counted.
class BareRays {
 public:
  BareRays(const BuiltScene& scene, int width, int height, int threads)
      : width_(width), height_(height), workers_(threads) {
    std::vector<picture::Instance> instances(scene.meshes.size());
    for (std::size_t i = 0; i < instances.size(); ++i) instances[i].geometry = scene.meshes[i].entity.mesh;
    scene_.emplace(std::move(instances), [](std::size_t) { return std::string(); }, workers_);
    for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
      const picture::Affine at(scene.meshes[i].localMatrix);
      scene_->move(i, {at, at, at});
    }
    scene_->commit();
  }

  void frame() {
    const auto across = static_cast<std::size_t>((width_ + 15) / 16),
               down = static_cast<std::size_t>((height_ + 15) / 16);
    workers_.run(across * down, [&](std::size_t tile, std::size_t) {
      trace(static_cast<int>(tile % across) * 16, static_cast<int>(tile / across) * 16);
    });
  }

 private:
  struct Lit {
    Vector3 place, normal;
  };

  void trace(int left, int top) {
    static constexpr float places[4][2] = {
        {0.375f, 0.125f}, {0.875f, 0.375f}, {0.125f, 0.625f}, {0.625f, 0.875f}};
    std::array<Lit, 1024> lit;
    std::size_t count = 0;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    const float tangent = std::tan(20 * std::numbers::pi_v<float> / 180),
                step = 2 * tangent / static_cast<float>(height_);
    const float sine = -2 * 0.16f * 0.987f, cosine = 1 - 2 * 0.16f * 0.16f;
    for (int y = top; y < std::min(top + 16, height_); ++y) {
      for (int x = left; x < std::min(left + 16, width_); x += 2) {
        alignas(32) const int valid[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
        RTCRayHit8 rays;
        for (int i = 0; i < 8; ++i) {
          const float px =
              step * (static_cast<float>(x + i / 4) + places[i % 4][0] - 0.5f * static_cast<float>(width_));
          const float py = tangent - step * (static_cast<float>(y) + places[i % 4][1]);
          set(rays.ray, i, {0, 3.5f, 9}, {px, py * cosine + sine, py * sine - cosine}, INFINITY);
          rays.hit.geomID[i] = rays.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
        }
        rtcIntersect8(valid, scene_->handle(), &context, &rays);
        for (int i = 0; i < 8; i += 4) {
          // Where one pixel shows several meshes, each sample is lit for itself.
          const auto* mesh = rays.hit.instID[0] + i;
          const bool one = mesh[0] == mesh[1] && mesh[0] == mesh[2] && mesh[0] == mesh[3];
          for (int k = i; k < i + (one ? 1 : 4); ++k) add(rays, k, lit, count);
        }
      }
    }
    const float e = 40 * std::numbers::pi_v<float> / 180;
    shadow(lit, count, context, {0.5f * std::cos(e), std::sin(e), 0.866f * std::cos(e)}, true);
    shadow(lit, count, context, {-4, 5, 4}, false);
    shadow(lit, count, context, {4, 5, 4}, false);
  }

  static void add(const RTCRayHit8& rays, int i, std::array<Lit, 1024>& lit, std::size_t& count) {
    if (rays.hit.geomID[i] == RTC_INVALID_GEOMETRY_ID) return;
    const auto normal = picture::normalized({rays.hit.Ng_x[i], rays.hit.Ng_y[i], rays.hit.Ng_z[i]});
    const Vector3 from{rays.ray.org_x[i], rays.ray.org_y[i], rays.ray.org_z[i]};
    const Vector3 to{rays.ray.dir_x[i], rays.ray.dir_y[i], rays.ray.dir_z[i]};
    lit[count++] = {from + to * rays.ray.tfar[i] + normal * 1e-4f, normal};
  }

  void shadow(const std::array<Lit, 1024>& lit, std::size_t count, RTCIntersectContext& context,
              const Vector3& light, bool directional) {
    RTCRay8 rays;
    int filled = 0;
    const auto flush = [&] {
      alignas(32) int valid[8];
      for (int i = 0; i < 8; ++i) valid[i] = i < filled ? -1 : 0;
      if (filled > 0) rtcOccluded8(valid, scene_->handle(), &context, &rays);
      for (int i = 0; i < filled; ++i) sum_ += rays.tfar[i] < 0;
      filled = 0;
    };
    const Vector3 axis{0, -std::sin(0.6f), -std::cos(0.6f)};
    for (std::size_t i = 0; i < count; ++i) {
      const auto to = directional ? light : light - lit[i].place;
      if (dot(lit[i].normal, to) <= 0) continue;
      if (!directional && -dot(axis, to) < std::cos(30 * std::numbers::pi_v<float> / 180) * length(to))
        continue;
      set(rays, filled++, lit[i].place, to, directional ? INFINITY : 0.9999f);
      if (filled == 8) flush();
    }
    flush();
  }

  static void set(RTCRay8& rays, int i, const Vector3& from, const Vector3& to, float far) {
    rays.org_x[i] = from.x, rays.org_y[i] = from.y, rays.org_z[i] = from.z;
    rays.dir_x[i] = to.x, rays.dir_y[i] = to.y, rays.dir_z[i] = to.z;
    rays.tnear[i] = rays.time[i] = 0;
    rays.tfar[i] = far;
    rays.mask[i] = ~0u;
    rays.id[i] = rays.flags[i] = 0;
  }

  int width_, height_;
  picture::Workers workers_;
  std::optional<picture::EmbreeScene> scene_;
  std::atomic<int> sum_ = 0;
};

void framesAgainstRays() {
  fmt::print("{:<10}{:>9}{:>14}{:>14}{:>8}\n", "size", "triangles", "picture ms", "rays ms", "ratio");
  for (const auto& [width, height, detail] : {std::tuple{1280, 720, 1}, {1920, 1080, 1}, {1280, 720, 5}}) {
    test::PictureStage stage;
    addScene(stage, width, height, detail);
    stage.finish();
    Ready ready(stage);
    BareRays bare(ready.shot.scene(), width, height, stage.options.threads);
    auto buffer = PixelBufferFactory(width, height).buffer();
    std::vector<double> ours, floor;
    for (int round = 0; round < 7; ++round) {
      ours.push_back(cpuFor([&] { ready.shot.render(round % 2, buffer, {}); }));
      floor.push_back(cpuFor([&] { bare.frame(); }));
    }
    const double a = vorlane::bench::percentile(ours, 0.5), b = vorlane::bench::percentile(floor, 0.5);
    fmt::print("{:<10}{:>9}{:>14.0f}{:>14.0f}{:>8.2f}\n", fmt::format("{}x{}", width, height),
               100'000 * detail, 1000 * a, 1000 * b, a / b);
  }
}

void memory() {
  const long before = peakKilobytes();
  test::PictureStage stage;
  addScene(stage, 1920, 1080, 5);
  stage.finish();
  const long decoded = static_cast<long>(stage.bundle.meshesBin.size() / 1024);
  Ready ready(stage);
  auto buffer = PixelBufferFactory(1920, 1080).buffer();
  ready.shot.render(0, buffer, {});
  fmt::print("memory at 1080p, 500 000 triangles: peak {} MB ({} MB before), meshes as decoded {} MB\n",
             peakKilobytes() / 1024, before / 1024, decoded / 1024);
}

/// From a decoded bundle to the first frame, against building the scene and its rays alone.
void firstFrame() {
  test::PictureStage stage;
  addScene(stage, 1280, 720, 5);
  stage.finish();
  auto buffer = PixelBufferFactory(1280, 720).buffer();
  const auto pair = vorlane::bench::medians(
      5,
      [&] {
        Ready ready(stage);
        ready.shot.render(0, buffer, {});
      },
      [&] {
        const auto scene = BundleSceneBuilder::build(stage.bundle);
        BareRays bare(scene, 1280, 720, stage.options.threads);
        bare.frame();
      });
  fmt::print("first frame: {:.0f} ms, decode, build and rays alone {:.0f} ms, ratio {:.2f}\n",
             1000 * pair.ours, 1000 * pair.floor, pair.ratio());
}

}  // namespace
}  // namespace renderkit

int main(int argc, char** argv) {
  const std::string only = argc > 1 ? argv[1] : "";
  if (only.empty() || only == "memory") renderkit::memory();  // first: the peak only grows
  if (only.empty() || only == "frames") renderkit::framesAgainstRays();
  if (only.empty() || only == "start") renderkit::firstFrame();
}
