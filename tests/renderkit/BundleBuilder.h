#pragma once

#include "renderkit/bundle/BakeBundle.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace renderkit::testing {

struct ZipEntry {
  std::string name;
  std::string bytes;
  bool deflate = false;
  /// An extra field in the local header alone.
  std::string localExtra;
};

/// An archive of these entries, one after another, with their directory behind them.
std::string zipBytes(const std::vector<ZipEntry>& entries, std::string_view comment = "");

/// Raw DEFLATE.
std::string deflated(std::string_view bytes);

/// `text` with little-endian `size` bytes of `value` at an offset.
std::string patched(std::string text, std::size_t offset, int size, std::uint64_t value);

/// A bundle in the making: sound, 64 by 48 pixels, four frames at 24 fps, without meshes,
/// cameras and lights, exposed for 5645 lux.
struct TestBundle {
  TestBundle();

  MeshBufferRange put(const std::vector<float>& values);
  MeshBufferRange put(const std::vector<std::uint32_t>& values);
  /// A mesh with these positions and indices at the origin, white and opaque.
  MeshRecord& addMesh(const std::string& id, const std::vector<float>& positions,
                      const std::vector<std::uint32_t>& indices);

  std::vector<ZipEntry> entries() const;
  std::string zip() const { return zipBytes(entries()); }
  /// Written and decoded again.
  BakeBundle decoded() const;

  BakeBundleManifest manifest;
  MeshTableDoc meshTable;
  BakeAnimationDoc animation;
  PhotometryDoc photometry;
  std::string meshesBin;
  /// From file name to bytes.
  std::map<std::string, std::string> textureFiles;
};

/// What `work` throws, or "nothing was thrown".
template <class Work>
std::string failureOf(Work&& work) {
  try {
    work();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

}  // namespace renderkit::testing
