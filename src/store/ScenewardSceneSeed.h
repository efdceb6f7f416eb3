#pragma once

#include "base/JSON.h"

#include <string_view>

namespace vorlane {

/// The form of a scene snapshot: how a new one starts, on which layer a shape belongs, and
/// how one of an older writer is brought up to it.
struct ScenewardSceneSeed {
  /// A new scene with one shot, the eleven layers and nothing placed.
  static JSONMap document(JSONMap meta);

  /// The "type" of the layer on which a shape of that kind belongs.
  static std::string_view layerType(std::string_view kind);

  /// Puts the shape on the first layer of its type, else on the first of all. A shape that
  /// has a "layerId" keeps it, whatever it is.
  static void assignLayer(JSONMap& shape, const JSONMap& document);

  /// A house gets no garage unless it says so.
  static void applyBuildingDefaults(JSONMap& shape);

  /// Adds what a document of an older writer lacks, and moves shapes that lie on no layer.
  /// True when anything changed. Folders and shapes that it cannot read stay as they are.
  static bool repair(JSONMap& document);
};

}  // namespace vorlane
