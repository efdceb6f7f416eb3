#include "renderkit/shot/BundleSceneBuilder.h"

#include "renderkit/Text.h"
#include "renderkit/shot/RenderError.h"

#include <fmt/format.h>

#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <numeric>
#include <tuple>

namespace renderkit::BundleSceneBuilder {
namespace {

/// What makes two meshes one geometry. The vertex count matters only without an index.
using Ranges = std::tuple<MeshBufferRange, std::optional<MeshBufferRange>, std::optional<MeshBufferRange>,
                          std::optional<MeshBufferRange>, std::int64_t>;

Ranges rangesOf(const MeshRecord& record) {
  return {record.position, record.normal, record.uv, record.index, record.index ? 0 : record.vertexCount};
}

[[noreturn]] void refuse(const MeshRecord& record, const std::string& what) {
  throw RenderError::meshBuildFailed(fmt::format("mesh {}: {}", record.id, what));
}

void requireMultiple(const MeshRecord& record, const char* what, std::int64_t count, std::int64_t divisor) {
  if (count % divisor != 0) {
    refuse(record, fmt::format("the {} count {} does not divide by {}", what, count, divisor));
  }
}

/// One value for each vertex, or none at all.
void requireOneEach(const MeshRecord& record, const char* what, std::int64_t count, std::int64_t vertices) {
  if (count != vertices) refuse(record, fmt::format("{} {}s for {} vertices", count, what, vertices));
}

void checkIndices(const BakeBundle& bundle, const MeshRecord& record, std::int64_t vertices) {
  const auto* at = bundle.meshesBin.data() + record.index->byteOffset;
  for (std::int64_t i = 0; i < record.index->count; ++i, at += 4) {
    std::uint32_t index = 0;
    std::memcpy(&index, at, 4);
    if (index >= vertices) {
      refuse(record, fmt::format("index {} is beyond its {} vertices", index, vertices));
    }
  }
}

/// Everything that may be wrong with a mesh, without reading it into arrays.
void check(const BakeBundle& bundle, const MeshRecord& record) {
  bundle.checkRange(record.position);
  if (record.normal) bundle.checkRange(*record.normal);
  if (record.uv) bundle.checkRange(*record.uv);
  if (record.index) bundle.checkRange(*record.index);

  requireMultiple(record, "position", record.position.count, 3);
  const auto vertices = record.position.count / 3;
  if (record.normal) {
    requireMultiple(record, "normal", record.normal->count, 3);
    requireOneEach(record, "normal", record.normal->count / 3, vertices);
  }
  if (record.uv) {
    requireMultiple(record, "uv", record.uv->count, 2);
    requireOneEach(record, "uv", record.uv->count / 2, vertices);
  }
  if (record.index) {
    requireMultiple(record, "index", record.index->count, 3);
    checkIndices(bundle, record, vertices);
  } else {
    if (record.vertexCount < 0 || record.vertexCount > vertices) {
      refuse(record, fmt::format("vertexCount {} is beyond its {} vertices", record.vertexCount, vertices));
    }
    requireMultiple(record, "vertex", record.vertexCount, 3);
  }
}

std::shared_ptr<const MeshGeometry> geometry(const BakeBundle& bundle, const MeshRecord& record) {
  auto geometry = std::make_shared<MeshGeometry>();
  geometry->positions = bundle.positions(record);
  geometry->normals = bundle.normals(record);
  geometry->uvs = bundle.uvs(record);
  if (record.index) {
    geometry->indices = bundle.indices(record);
  } else {
    geometry->indices.resize(static_cast<std::size_t>(record.vertexCount));
    std::iota(geometry->indices.begin(), geometry->indices.end(), 0U);
  }
  return geometry;
}

Matrix4 localMatrix(const MeshRecord& record) {
  Matrix4 matrix;
  if (record.localMatrix.size() != matrix.m.size()) refuse(record, "localMatrix must have 16 entries");
  for (std::size_t i = 0; i < matrix.m.size(); ++i) matrix.m[i] = static_cast<float>(record.localMatrix[i]);
  return matrix;
}

}  // namespace

BuiltScene build(const BakeBundle& bundle, Vertices vertices) {
  BuiltScene scene;
  scene.meshes.reserve(bundle.meshTable.records.size());
  // Each set of ranges is checked and read once, however many meshes show it.
  std::map<Ranges, std::shared_ptr<const MeshGeometry>> known;
  for (const auto& record : bundle.meshTable.records) {
    BuiltMesh mesh{.shapeId = record.shapeId, .localMatrix = localMatrix(record)};
    const auto ranges = rangesOf(record);
    auto found = known.find(ranges);
    if (found == known.end()) {
      check(bundle, record);
      found = known.emplace(ranges, vertices == Vertices::keep ? geometry(bundle, record) : nullptr).first;
    }
    mesh.entity.mesh = found->second;
    mesh.entity.material.color = color(record.material.colorHex, record.material.opacity);
    mesh.entity.transform = mesh.localMatrix;
    scene.meshes.push_back(std::move(mesh));
  }
  return scene;
}

Color color(std::string_view colorHex, double opacity) {
  auto digits = trimmed(colorHex);
  if (digits.starts_with('#')) digits.remove_prefix(1);
  std::uint32_t rgb = 0xFFFFFF;
  if (digits.size() == 6 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos) {
    std::from_chars(digits.data(), digits.data() + digits.size(), rgb, 16);
  }
  return {.red = static_cast<float>(rgb >> 16) / 255,
          .green = static_cast<float>(rgb >> 8 & 255) / 255,
          .blue = static_cast<float>(rgb & 255) / 255,
          .alpha = static_cast<float>(opacity)};
}

}  // namespace renderkit::BundleSceneBuilder
