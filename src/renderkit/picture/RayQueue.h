#pragma once

#include "renderkit/picture/Vector3.h"

#include <embree3/rtcore.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace renderkit::picture {

/// What a ray or a lit point belongs to.
struct Owner {
  std::uint16_t pixel = 0;  // its place in the batch
  std::uint16_t sample = 0;
};

/// A batch of rays in packets of eight, as Embree takes them, with what each is worth.
class RayQueue {
 public:
  static constexpr std::size_t capacity = 1024;

  RayQueue() : packets_(capacity / 8), weights_(capacity), owners_(capacity) {}

  std::size_t size() const { return size_; }
  void clear() { size_ = 0; }

  void add(const Vector3& origin, const Vector3& direction, float from, float time, const Vector3& weight,
           Owner owner) {
    auto& ray = packets_[size_ / 8].ray;
    const auto i = size_ % 8;
    ray.org_x[i] = origin.x, ray.org_y[i] = origin.y, ray.org_z[i] = origin.z;
    ray.dir_x[i] = direction.x, ray.dir_y[i] = direction.y, ray.dir_z[i] = direction.z;
    ray.tnear[i] = from;
    ray.tfar[i] = std::numeric_limits<float>::infinity();
    ray.time[i] = time;
    weights_[size_] = weight;
    owners_[size_++] = owner;
  }

  /// Finds what each ray meets.
  void intersect(RTCScene scene, RTCIntersectContextFlags flags) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags = flags;
    for (std::size_t first = 0; first < size_; first += 8) {
      auto& packet = packets_[first / 8];
      alignas(32) int valid[8];
      for (std::size_t i = 0; i < 8; ++i) {
        valid[i] = first + i < size_ ? -1 : 0;
        packet.ray.mask[i] = ~0u;
        packet.ray.id[i] = static_cast<unsigned>(i);
        packet.ray.flags[i] = 0;
        packet.hit.geomID[i] = packet.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
      }
      rtcIntersect8(valid, scene, &context, &packet);
    }
  }

  Vector3 origin(std::size_t i) const {
    return {ray(i).org_x[i % 8], ray(i).org_y[i % 8], ray(i).org_z[i % 8]};
  }
  Vector3 direction(std::size_t i) const {
    return {ray(i).dir_x[i % 8], ray(i).dir_y[i % 8], ray(i).dir_z[i % 8]};
  }
  float time(std::size_t i) const { return ray(i).time[i % 8]; }
  float distance(std::size_t i) const { return ray(i).tfar[i % 8]; }
  bool hasHit(std::size_t i) const { return hit(i).geomID[i % 8] != RTC_INVALID_GEOMETRY_ID; }
  std::uint32_t instance(std::size_t i) const { return hit(i).instID[0][i % 8]; }
  std::uint32_t triangle(std::size_t i) const { return hit(i).primID[i % 8]; }
  float u(std::size_t i) const { return hit(i).u[i % 8]; }
  float v(std::size_t i) const { return hit(i).v[i % 8]; }
  /// The triangle's normal in the mesh's own space, of any length.
  Vector3 normal(std::size_t i) const { return {hit(i).Ng_x[i % 8], hit(i).Ng_y[i % 8], hit(i).Ng_z[i % 8]}; }
  const Vector3& weight(std::size_t i) const { return weights_[i]; }
  Owner owner(std::size_t i) const { return owners_[i]; }

 private:
  const RTCRay8& ray(std::size_t i) const { return packets_[i / 8].ray; }
  const RTCHit8& hit(std::size_t i) const { return packets_[i / 8].hit; }

  std::vector<RTCRayHit8> packets_;
  std::vector<Vector3> weights_;
  std::vector<Owner> owners_;
  std::size_t size_ = 0;
};

}  // namespace renderkit::picture
