#include "renderkit/shot/LightPlacement.h"

#include <fmt/format.h>

#include <algorithm>
#include <ranges>

namespace renderkit {

std::optional<LightPlacement> placeLight(const PhotometryLight& light, const BakeBundle& bundle) {
  const auto& records = bundle.meshTable.records;
  auto found = std::ranges::find(records, light.id, &MeshRecord::id);
  if (found == records.end()) {
    found = std::ranges::find(records, std::optional(light.id), &MeshRecord::shapeId);
  }
  if (found != records.end()) {
    return LightPlacement{.mesh = static_cast<std::size_t>(found - records.begin())};
  }
  // Of several tracks with one target the last counts, as it does for meshes.
  for (const auto& track : bundle.animation.tracks | std::views::reverse) {
    if (track.targetId == light.id && !track.perFrame.empty()) return LightPlacement{.track = &track};
  }
  return std::nullopt;
}

std::string unplacedLightNotice(const PhotometryLight& light) {
  return fmt::format("the light \"{}\" ({}) stands at no mesh and no track, and is left out", light.name,
                     light.id);
}

}  // namespace renderkit
