#include "renderkit/shot/ScenePoser.h"

#include "renderkit/shot/TransformReplay.h"

namespace renderkit {

ScenePoser::ScenePoser(const BakeAnimationDoc& animation, const BuiltScene& scene) : scene_(scene) {
  for (const auto& track : animation.tracks) tracks_[track.targetId] = &track;
  ofMesh_.reserve(scene.meshes.size());
  for (const auto& mesh : scene.meshes) {
    const auto* found = mesh.shapeId ? track(*mesh.shapeId) : nullptr;
    // A track without samples leaves its meshes where they were built.
    ofMesh_.push_back(found != nullptr && !found->perFrame.empty() ? found : nullptr);
  }
}

Matrix4 ScenePoser::matrix(std::size_t mesh, std::int64_t frame) const {
  const auto& local = scene_.meshes[mesh].localMatrix;
  if (ofMesh_[mesh] == nullptr) return local;
  return TransformReplay::matrix(TransformReplay::sample(*ofMesh_[mesh], frame)) * local;
}

void ScenePoser::pose(BuiltScene& scene, std::int64_t frame) const {
  for (std::size_t mesh = 0; mesh < scene.meshes.size(); ++mesh) {
    if (ofMesh_[mesh] != nullptr) scene.meshes[mesh].entity.transform = matrix(mesh, frame);
  }
}

const AnimationTrack* ScenePoser::track(const std::string& targetId) const {
  const auto found = tracks_.find(targetId);
  return found == tracks_.end() ? nullptr : found->second;
}

}  // namespace renderkit
