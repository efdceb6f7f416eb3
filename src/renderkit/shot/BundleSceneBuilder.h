#pragma once

#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/shot/BuiltScene.h"

#include <string_view>

namespace renderkit::BundleSceneBuilder {

enum class Vertices {
  keep,
  /// Checked as if they were kept; every mesh is null.
  checkOnly,
};

/// Turns the records into entities, in their order. Throws RenderError, which names the mesh,
/// before anything is allocated for one that is not sound, and BakeBundleError for a range.
BuiltScene build(const BakeBundle& bundle, Vertices vertices = Vertices::keep);

/// The colour of "#rrggbb" (the "#" and white space around may be there or not), else white;
/// the alpha is the opacity.
Color color(std::string_view colorHex, double opacity);

}  // namespace renderkit::BundleSceneBuilder
