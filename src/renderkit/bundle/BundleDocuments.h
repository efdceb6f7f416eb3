#pragma once

#include "renderkit/bundle/BakeAnimation.h"
#include "renderkit/bundle/BakeBundleManifest.h"
#include "renderkit/bundle/MeshTable.h"
#include "renderkit/bundle/Photometry.h"

#include <boost/json/value.hpp>

#include <string_view>

namespace renderkit {

/// The names of a bundle's entries.
namespace BakeBundleFiles {
inline constexpr std::string_view manifest = "manifest.json";
inline constexpr std::string_view meshes = "meshes.json";
inline constexpr std::string_view animation = "animation.json";
inline constexpr std::string_view photometry = "photometry.json";
inline constexpr std::string_view meshesBin = "meshes.bin";
/// Stands before the file name of each texture.
inline constexpr std::string_view textures = "textures/";
}  // namespace BakeBundleFiles

/// Reads the manifest. Its fields are checked first, one by one, so that the first wrong one
/// gets a message of its own. Throws BakeBundleError, BundleDocumentError.
BakeBundleManifest decodeManifest(std::string_view text);

/// The other documents. No key has a default. Throw BundleDocumentError.
MeshTableDoc decodeMeshTable(std::string_view text);
BakeAnimationDoc decodeAnimation(std::string_view text);
PhotometryDoc decodePhotometry(std::string_view text);

/// The documents as JSON, with the keys that they are read by; an absent optional has no key.
boost::json::value encode(const TransformSample& sample);
boost::json::value encode(const BakeBundleManifest& manifest);
boost::json::value encode(const MeshTableDoc& table);
boost::json::value encode(const BakeAnimationDoc& animation);
boost::json::value encode(const PhotometryDoc& photometry);

}  // namespace renderkit
