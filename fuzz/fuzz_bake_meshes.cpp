// Meshes with whatever ranges, counts and indices are refused, or give arrays in which no
// index reaches past the positions. The input is six numbers of four bytes for each mesh, and what
// follows the last whole mesh is meshes.bin; its first byte tells how many meshes there are.
#include "renderkit/Failure.h"
#include "renderkit/shot/BundleSceneBuilder.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

/// Small numbers, near the ends of meshes.bin, and now and then a huge one.
std::int64_t number(const std::uint8_t* at) {
  std::int32_t value = 0;
  std::memcpy(&value, at, 4);
  return (value & 0xFF) == 0xFF ? static_cast<std::int64_t>(value) << 31 : value % 512;
}

renderkit::MeshRecord record(const std::uint8_t* at) {
  renderkit::MeshRecord mesh{.id = "m", .localMatrix = std::vector<double>(16)};
  mesh.position = {number(at), number(at + 4)};
  if (at[8] & 1) mesh.normal = {number(at + 8), mesh.position.count};
  if (at[9] & 1) mesh.uv = {number(at + 8), mesh.position.count / 3 * 2};
  if (at[10] & 1) mesh.index = {number(at + 12), number(at + 16)};
  mesh.vertexCount = number(at + 20);
  return mesh;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t each = 24;
  if (size == 0) return 0;
  renderkit::BakeBundle bundle;
  const auto meshes = std::min<std::size_t>(data[0] % 8, (size - 1) / each);
  for (std::size_t i = 0; i < meshes; ++i) bundle.meshTable.records.push_back(record(data + 1 + i * each));
  bundle.meshesBin = renderkit::Bytes(std::vector(data + 1 + meshes * each, data + size));
  using renderkit::BundleSceneBuilder::Vertices;
  bool sound = true;
  try {
    for (const auto& mesh : renderkit::BundleSceneBuilder::build(bundle).meshes) {
      const auto vertices = mesh.entity.mesh->positions.size() / 3;
      for (const auto index : mesh.entity.mesh->indices) {
        if (index >= vertices) std::abort();
      }
    }
  } catch (const renderkit::Failure&) {
    sound = false;
  }
  // Without vertices the answer is the same.
  try {
    renderkit::BundleSceneBuilder::build(bundle, Vertices::checkOnly);
    if (!sound) std::abort();
  } catch (const renderkit::Failure&) {
    if (sound) std::abort();
  }
  return 0;
}
