#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace renderkit {

/// Where an array lies in "meshes.bin".
struct MeshBufferRange {
  /// In bytes, a multiple of four.
  std::int64_t byteOffset = 0;
  /// Number of 4-byte elements: neither bytes nor vertices.
  std::int64_t count = 0;
  auto operator<=>(const MeshBufferRange&) const = default;
};

struct MeshMaterialRecord {
  /// "#rrggbb" in sRGB; anything else counts as white.
  std::string colorHex;
  /// 0 (clear) to 1 (opaque).
  double opacity = 1;
  bool doubleSided = false;
  /// A key of the table's textures.
  std::optional<std::string> textureRef;
  bool operator==(const MeshMaterialRecord&) const = default;
};

struct MeshRecord {
  std::string id;
  std::string name;
  /// The scene shape that this mesh belongs to: the target of animation tracks.
  std::optional<std::string> shapeId;
  /// Column by column; 16 entries, which is checked when the scene is built.
  std::vector<double> localMatrix;
  MeshMaterialRecord material;
  /// Vertices; draws them in turn where there is no index.
  std::int64_t vertexCount = 0;
  MeshBufferRange position;
  std::optional<MeshBufferRange> normal;
  std::optional<MeshBufferRange> uv;
  std::optional<MeshBufferRange> index;
  bool operator==(const MeshRecord&) const = default;
};

/// "meshes.json".
struct MeshTableDoc {
  std::vector<MeshRecord> records;
  /// From texture key to the file name under "textures/".
  std::map<std::string, std::string> textures;
  bool operator==(const MeshTableDoc&) const = default;
};

}  // namespace renderkit
