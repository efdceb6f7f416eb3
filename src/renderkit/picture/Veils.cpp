#include "renderkit/picture/Veils.h"

#include "renderkit/picture/Hit.h"

namespace renderkit::picture {

Veils::Veils(const EmbreeScene& scene, const Light& light) : scene_(scene), light_(light) {
  rtcInitIntersectContext(&context_.base);
  context_.base.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
  context_.self = this;
}

void Veils::trace(const int* valid, RTCRay8& rays, float* arriving) {
  for (auto& lane : lanes_) {
    lane.count = 0;
    lane.through = 1;
  }
  rtcOccluded8(valid, scene_.handle(), &context_.base, &rays);
  for (std::size_t i = 0; i < 8; ++i) {
    const auto& lane = lanes_[i];
    float through = rays.tfar[i] < 0 ? 0 : lane.through;
    for (std::size_t pane = 0; pane < lane.count; ++pane) {
      through *= std::min(lane.panes[pane].front, lane.panes[pane].back);
    }
    arriving[i] = through;
  }
}

void Veils::filter(const RTCFilterFunctionNArguments* arguments) {
  auto* self = reinterpret_cast<Context*>(arguments->context)->self;
  for (unsigned lane = 0; lane < arguments->N; ++lane) {
    if (arguments->valid[lane] == -1 && self->passes(*arguments, lane)) arguments->valid[lane] = 0;
  }
}

bool Veils::passes(const RTCFilterFunctionNArguments& arguments, unsigned lane) {
  const auto n = arguments.N;
  auto* const hit = arguments.hit;
  auto* const ray = arguments.ray;
  const auto instance = RTCHitN_instID(hit, n, lane, 0);
  const auto& surface = scene_.surface(instance);
  if (surface.isFixture && std::ranges::binary_search(light_.fixture, instance)) return true;
  const auto& material = *surface.material;
  if (!material.isVeil()) return false;
  float opacity = material.opacity;
  if (material.texture) {
    const auto place =
        uvOf(surface, RTCHitN_primID(hit, n, lane), RTCHitN_u(hit, n, lane), RTCHitN_v(hit, n, lane));
    opacity *= material.texture->at(place.u, place.v, 0).alpha;
  }
  if (opacity >= 1) return false;
  auto& into = lanes_[RTCRayN_id(ray, n, lane)];
  if (material.doubleSided) {
    into.through *= 1 - opacity;
    return true;
  }
  const Vector3 normal{RTCHitN_Ng_x(hit, n, lane), RTCHitN_Ng_y(hit, n, lane), RTCHitN_Ng_z(hit, n, lane)};
  const Vector3 direction{RTCRayN_dir_x(ray, n, lane), RTCRayN_dir_y(ray, n, lane),
                          RTCRayN_dir_z(ray, n, lane)};
  dim(into, instance, dot(normal, direction) < 0, 1 - opacity);
  return true;
}

void Veils::dim(Lane& lane, std::uint32_t instance, bool fromFront, float share) {
  for (std::size_t i = 0; i < lane.count; ++i) {
    if (lane.panes[i].instance != instance) continue;
    (fromFront ? lane.panes[i].front : lane.panes[i].back) *= share;
    return;
  }
  if (lane.count == lane.panes.size()) {
    lane.through *= share;
    return;
  }
  lane.panes[lane.count++] = {instance, fromFront ? share : 1, fromFront ? 1 : share};
}

}  // namespace renderkit::picture
