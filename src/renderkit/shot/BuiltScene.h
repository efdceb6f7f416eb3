#pragma once

#include "renderkit/shot/Matrix4.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace renderkit {

/// The arrays of one mesh, checked: every index lies within the positions, and the counts
/// are whole triangles and vertices.
struct MeshGeometry {
  /// Three a vertex. At least one more float is reserved behind the last, for
  /// readers that fetch a vertex as four.
  std::vector<float> positions;
  /// Three a vertex, or empty.
  std::vector<float> normals;
  /// Two a vertex, or empty; v = 1 is the texture's first row.
  std::vector<float> uvs;
  /// Three a triangle; 0, 1, ... where the record has none.
  std::vector<std::uint32_t> indices;
};

/// Red, green and blue in sRGB and alpha, each 0 to 1.
struct Color {
  float red = 1, green = 1, blue = 1, alpha = 1;
  bool operator==(const Color&) const = default;
};

/// What a mesh looks like. Textures and sides stand in the mesh's record.
struct SimpleMaterial {
  Color color;
  float roughness = 0;
  bool isMetallic = false;
};

/// A node of the scene.
struct Entity {
  Matrix4 transform;
};

/// A node that shows a mesh. Meshes with the same ranges share one geometry, by
/// pointer; it is null when the scene was built without vertices.
struct ModelEntity : Entity {
  std::shared_ptr<const MeshGeometry> mesh;
  SimpleMaterial material;
};

struct BuiltMesh {
  /// Its transform is the world matrix at the frame that the scene is posed at; the root does not move.
  ModelEntity entity;
  std::optional<std::string> shapeId;
  Matrix4 localMatrix;
};

/// The entities of a bundle. The root parents all meshes, which stand in the order of the records.
struct BuiltScene {
  Entity root;
  std::vector<BuiltMesh> meshes;
};

}  // namespace renderkit
