#pragma once

#include "renderkit/picture/Scene.h"
#include "renderkit/picture/Workers.h"

#include <embree3/rtcore.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace renderkit::picture {

struct Bounds {
  Vector3 lower, upper;
};

/// The geometry of a shot as rays see it: one Embree scene for each distinct mesh, and one of
/// instances above them. Each is built by one thread, so that coincident surfaces come out the
/// same whatever the number of threads.
class EmbreeScene {
 public:
  /// What the shading code needs of an instance.
  struct Surface {
    const float* positions = nullptr;
    const float* normals = nullptr;  // null: flat
    const float* uvs = nullptr;
    const std::uint32_t* indices = nullptr;
    const Material* material = nullptr;
    /// The normals were computed: they hold only where a face is not too far from them.
    bool creased = false;
    bool isFixture = false;
    /// Of places and of normals to the world, at the shutter's middle.
    Affine toWorld, normalsToWorld;
  };

  /// Builds all meshes. `nameOf` tells which one failed. `memoryLimit` is in bytes of Embree's
  /// own, 0 for none. Throws RenderError::meshBuildFailed.
  EmbreeScene(std::vector<Instance> instances, const std::function<std::string(std::size_t)>& nameOf,
              Workers& workers, std::size_t memoryLimit = 0);
  EmbreeScene(const EmbreeScene&) = delete;
  EmbreeScene& operator=(const EmbreeScene&) = delete;

  /// Moves an instance. One whose matrix cannot be inverted is not seen until it moves again.
  void move(std::size_t instance, const Motion& motion);
  /// Makes the moves hold; before any ray. Throws RenderError::meshBuildFailed.
  void commit();

  /// Of everything that is seen; nothing for an empty scene.
  std::optional<Bounds> bounds() const;

  RTCScene handle() const { return top_.get(); }
  const Surface& surface(std::size_t instance) const { return surfaces_[instance]; }
  std::size_t count() const { return surfaces_.size(); }

 private:
  struct Release {
    void operator()(RTCDevice device) const { rtcReleaseDevice(device); }
    void operator()(RTCScene scene) const { rtcReleaseScene(scene); }
    void operator()(RTCGeometry geometry) const { rtcReleaseGeometry(geometry); }
  };
  template <class Handle>
  using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, Release>;

  /// One distinct mesh.
  struct Shape {
    std::shared_ptr<const MeshGeometry> geometry;
    std::size_t firstInstance = 0;
    bool needsFilter = false;
    std::vector<float> computedNormals;
    Owned<RTCScene> scene;
  };

  void findShapes(const std::vector<Instance>& instances);
  void buildShape(Shape& shape);
  void attach(std::size_t instance, const Shape& shape);
  /// Throws when Embree has failed on this thread since the last time.
  void check(const std::function<std::string()>& what) const;
  static bool watchMemory(void* self, ssize_t bytes, bool post);

  std::size_t memoryLimit_;
  std::atomic<std::ptrdiff_t> memory_ = 0;
  Owned<RTCDevice> device_;
  std::vector<Shape> shapes_;
  std::vector<std::size_t> shapeOf_;
  std::vector<Material> materials_;
  std::vector<Surface> surfaces_;
  std::vector<std::uint8_t> visible_;
  Owned<RTCScene> top_;
};

}  // namespace renderkit::picture
