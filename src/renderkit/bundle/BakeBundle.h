#pragma once

#include "renderkit/Bytes.h"
#include "renderkit/bundle/BakeAnimation.h"
#include "renderkit/bundle/BakeBundleManifest.h"
#include "renderkit/bundle/MeshTable.h"
#include "renderkit/bundle/Photometry.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace renderkit {

/// A decoded bake bundle: the hand-over of one shot's frozen meshes, animation and light.
/// Its ranges are checked when they are read, not before.
struct BakeBundle {
  BakeBundleManifest manifest;
  MeshTableDoc meshTable;
  BakeAnimationDoc animation;
  PhotometryDoc photometry;
  /// Little-endian 4-byte elements; "meshes.bin" as it is.
  Bytes meshesBin;
  /// From texture key to the bytes of an image file.
  std::map<std::string, Bytes> textures;

  /// The elements of a range. Throw BakeBundleError.
  std::vector<float> floats(const MeshBufferRange& range) const;
  std::vector<std::uint32_t> integers(const MeshBufferRange& range) const;
  /// Throws what reading the range would throw, and allocates nothing.
  void checkRange(const MeshBufferRange& range) const;

  /// The arrays of one record; empty where the record has no such range. Throw BakeBundleError.
  std::vector<float> positions(const MeshRecord& record) const;
  std::vector<float> normals(const MeshRecord& record) const;
  std::vector<float> uvs(const MeshRecord& record) const;
  std::vector<std::uint32_t> indices(const MeshRecord& record) const;
};

}  // namespace renderkit
