#pragma once

#include "renderkit/bundle/BakeAnimation.h"
#include "renderkit/shot/BuiltScene.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace renderkit {

/// Replays the animation on a built scene. It refers to both, which must outlive it.
class ScenePoser {
 public:
  ScenePoser(const BakeAnimationDoc& animation, const BuiltScene& scene);

  /// The world matrix of one mesh, by its place in the scene, at any frame. Any thread.
  Matrix4 matrix(std::size_t mesh, std::int64_t frame) const;

  /// Sets the transform of every mesh that has a track; the rest stay as built.
  void pose(BuiltScene& scene, std::int64_t frame) const;

  /// The track with that target; of several the last. Null when there is none.
  const AnimationTrack* track(const std::string& targetId) const;

 private:
  const BuiltScene& scene_;
  std::unordered_map<std::string, const AnimationTrack*> tracks_;
  /// For each mesh its track, or null where it stays as built.
  std::vector<const AnimationTrack*> ofMesh_;
};

}  // namespace renderkit
