#include "renderkit/picture/EmbreeScene.h"

#include "renderkit/picture/Veils.h"
#include "renderkit/shot/RenderError.h"

#include <limits>
#include <new>
#include <unordered_map>
#include <utility>

namespace renderkit::picture {
namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

/// The mean of the faces around each vertex, weighted by their areas; of length 1. Empty where no two
/// triangles share a vertex: such a mesh is flat anyway.
std::vector<float> computeNormals(const MeshGeometry& mesh) {
  if (mesh.indices.size() >= mesh.positions.size() && mesh.indices.size() * 3 == mesh.positions.size())
    return {};
  std::vector<float> normals(mesh.positions.size());
  const auto vertex = [&](std::uint32_t i) {
    const float* p = mesh.positions.data() + 3 * static_cast<std::size_t>(i);
    return Vector3{p[0], p[1], p[2]};
  };
  for (std::size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
    const std::uint32_t* corners = mesh.indices.data() + t;
    const auto a = vertex(corners[0]);
    const auto face = cross(vertex(corners[1]) - a, vertex(corners[2]) - a);
    if (!isFinite(face)) continue;
    for (int corner = 0; corner < 3; ++corner) {
      float* sum = normals.data() + 3 * static_cast<std::size_t>(corners[corner]);
      sum[0] += face.x, sum[1] += face.y, sum[2] += face.z;
    }
  }
  for (std::size_t i = 0; i + 2 < normals.size(); i += 3) {
    const auto unit = normalized({normals[i], normals[i + 1], normals[i + 2]}, {});
    normals[i] = unit.x, normals[i + 1] = unit.y, normals[i + 2] = unit.z;
  }
  return normals;
}

}  // namespace

EmbreeScene::EmbreeScene(std::vector<Instance> instances,
                         const std::function<std::string(std::size_t)>& nameOf, Workers& workers,
                         std::size_t memoryLimit)
    // The same code paths on every processor that is fit at all.
    : memoryLimit_(memoryLimit), device_(rtcNewDevice("threads=1,isa=avx2,start_threads=0")) {
  if (!device_) throw RenderError::meshBuildFailed("Embree does not start");
  rtcSetDeviceMemoryMonitorFunction(device_.get(), &watchMemory, this);
  findShapes(instances);
  workers.run(shapes_.size(), [&](std::size_t piece, std::size_t) {
    auto& shape = shapes_[piece];
    try {
      buildShape(shape);
      check([&] { return "mesh " + nameOf(shape.firstInstance); });
    } catch (const std::bad_alloc&) {
      throw RenderError::meshBuildFailed("mesh " + nameOf(shape.firstInstance) + ": out of memory");
    }
  });
  top_.reset(rtcNewScene(device_.get()));
  rtcSetSceneFlags(top_.get(), RTC_SCENE_FLAG_DYNAMIC);
  rtcSetSceneBuildQuality(top_.get(), RTC_BUILD_QUALITY_LOW);
  materials_.reserve(instances.size());
  surfaces_.resize(instances.size());
  visible_.resize(instances.size());
  for (std::size_t i = 0; i < instances.size(); ++i) {
    materials_.push_back(std::move(instances[i].material));
    surfaces_[i].material = &materials_[i];
    surfaces_[i].isFixture = instances[i].isFixture;
    if (shapeOf_[i] != none) attach(i, shapes_[shapeOf_[i]]);
  }
  commit();
}

void EmbreeScene::findShapes(const std::vector<Instance>& instances) {
  std::unordered_map<const MeshGeometry*, std::size_t> known;
  shapeOf_.assign(instances.size(), none);
  for (std::size_t i = 0; i < instances.size(); ++i) {
    const auto& instance = instances[i];
    if (!instance.geometry || instance.geometry->indices.empty()) continue;
    // What is wholly clear is neither seen nor does it shade.
    if (!(instance.material.opacity > 0)) continue;
    const auto [at, isNew] = known.try_emplace(instance.geometry.get(), shapes_.size());
    if (isNew) shapes_.push_back({.geometry = instance.geometry, .firstInstance = i});
    shapes_[at->second].needsFilter |= instance.isFixture || instance.material.isVeil();
    shapeOf_[i] = at->second;
  }
}

void EmbreeScene::buildShape(Shape& shape) {
  const auto& mesh = *shape.geometry;
  if (mesh.normals.size() < mesh.positions.size()) shape.computedNormals = computeNormals(mesh);
  const Owned<RTCGeometry> triangles(rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_TRIANGLE));
  rtcSetSharedGeometryBuffer(triangles.get(), RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                             mesh.positions.data(), 0, 3 * sizeof(float), mesh.positions.size() / 3);
  rtcSetSharedGeometryBuffer(triangles.get(), RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, mesh.indices.data(),
                             0, 3 * sizeof(std::uint32_t), mesh.indices.size() / 3);
  if (shape.needsFilter) rtcSetGeometryOccludedFilterFunction(triangles.get(), &Veils::filter);
  rtcCommitGeometry(triangles.get());
  shape.scene.reset(rtcNewScene(device_.get()));
  rtcSetSceneFlags(shape.scene.get(), RTC_SCENE_FLAG_ROBUST);
  rtcAttachGeometry(shape.scene.get(), triangles.get());
  rtcCommitScene(shape.scene.get());
}

void EmbreeScene::attach(std::size_t instance, const Shape& shape) {
  const auto& mesh = *shape.geometry;
  auto& surface = surfaces_[instance];
  surface.positions = mesh.positions.data();
  surface.indices = mesh.indices.data();
  surface.creased = !shape.computedNormals.empty();
  if (surface.creased) surface.normals = shape.computedNormals.data();
  if (!mesh.normals.empty() && mesh.normals.size() >= mesh.positions.size())
    surface.normals = mesh.normals.data();
  if (!mesh.uvs.empty() && mesh.uvs.size() / 2 >= mesh.positions.size() / 3) surface.uvs = mesh.uvs.data();
  const Owned<RTCGeometry> geometry(rtcNewGeometry(device_.get(), RTC_GEOMETRY_TYPE_INSTANCE));
  check([] { return std::string("the scene"); });
  rtcSetGeometryInstancedScene(geometry.get(), shape.scene.get());
  rtcSetGeometryTimeStepCount(geometry.get(), 1);
  rtcCommitGeometry(geometry.get());
  rtcAttachGeometryByID(top_.get(), geometry.get(), static_cast<unsigned>(instance));
  // Until it is moved to where it stands.
  rtcDisableGeometry(geometry.get());
}

void EmbreeScene::move(std::size_t instance, const Motion& motion) {
  if (shapeOf_[instance] == none) return;
  auto& surface = surfaces_[instance];
  const auto geometry = rtcGetGeometry(top_.get(), static_cast<unsigned>(instance));
  const bool sound = std::ranges::all_of(motion, &Affine::isSound);
  if (sound != (visible_[instance] != 0)) {
    visible_[instance] = sound;
    sound ? rtcEnableGeometry(geometry) : rtcDisableGeometry(geometry);
  }
  if (!sound) return;
  const bool still = motion[0] == motion[1] && motion[1] == motion[2];
  const unsigned steps = still ? 1 : 3;
  rtcSetGeometryTimeStepCount(geometry, steps);
  static_assert(sizeof(Affine) == 12 * sizeof(float));
  for (unsigned step = 0; step < steps; ++step) {
    rtcSetGeometryTransform(geometry, step, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, &motion[step]);
  }
  rtcCommitGeometry(geometry);
  surface.toWorld = motion[1];
  surface.normalsToWorld = motion[1].normals();
}

void EmbreeScene::commit() {
  rtcCommitScene(top_.get());
  check([] { return std::string("the scene"); });
}

std::optional<Bounds> EmbreeScene::bounds() const {
  RTCBounds box;
  rtcGetSceneBounds(top_.get(), &box);
  const Bounds bounds{{box.lower_x, box.lower_y, box.lower_z}, {box.upper_x, box.upper_y, box.upper_z}};
  if (!isFinite(bounds.lower) || !isFinite(bounds.upper) || bounds.lower.x > bounds.upper.x)
    return std::nullopt;
  return bounds;
}

void EmbreeScene::check(const std::function<std::string()>& what) const {
  const auto error = rtcGetDeviceError(device_.get());
  if (error == RTC_ERROR_NONE) return;
  const bool memory = error == RTC_ERROR_OUT_OF_MEMORY || error == RTC_ERROR_CANCELLED;
  throw RenderError::meshBuildFailed(what() + (memory ? ": out of memory" : ": Embree refuses it"));
}

bool EmbreeScene::watchMemory(void* self, ssize_t bytes, bool) {
  auto& scene = *static_cast<EmbreeScene*>(self);
  const auto total = scene.memory_ += bytes;
  return bytes <= 0 || scene.memoryLimit_ == 0 || total <= static_cast<std::ptrdiff_t>(scene.memoryLimit_);
}

}  // namespace renderkit::picture
