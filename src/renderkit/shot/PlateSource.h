#pragma once

#include "renderkit/shot/FrameSource.h"

#include <memory>

namespace renderkit {

/// A solid plate in place of the picture: it keeps pipeline, timing, names and file format
/// exact, and needs no vertices.
std::unique_ptr<FrameSource> makePlateSource(const FrameSourceSetup& setup);

}  // namespace renderkit
