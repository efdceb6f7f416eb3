#pragma once

#include "base/JSON.h"

#include <cstdint>

namespace vorlane {

/// What the tools do to the shapes of a scene.
struct ShapeOperations {
  /// Gives the shape an id when it has none.
  static void ensureID(JSONMap& shape);
  /// What a shape of this scene needs beside its id: the building default and a layer.
  static void place(JSONMap& shape, const JSONMap& document);
  /// Sets every key of the patch but "id".
  static void merge(JSONMap& shape, const JSONMap& patch);

  /// Applies create, update and delete operations in their order, each seeing what those
  /// before it did. What cannot be applied is passed over. Returns how many were applied:
  /// a removal always counts, a change only when there was such a shape. Throws a failure
  /// (409) when the scene's shapes cannot be read.
  static std::int64_t apply(JSONMap& document, JSONArray operations);
};

}  // namespace vorlane
