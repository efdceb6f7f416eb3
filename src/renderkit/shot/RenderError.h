#pragma once

#include "renderkit/Failure.h"

#include <string>

namespace renderkit {

/// The scene could not be built, or the renderer is not there.
class RenderError : public Failure {
 public:
  static RenderError meshBuildFailed(const std::string& detail) {
    return RenderError("[render] mesh build failed: " + detail);
  }
  static RenderError metalRendererNotImplemented() {
    return RenderError("[render] MetalShotRenderer is the RISKGATE escape hatch and is not implemented yet");
  }

 private:
  using Failure::Failure;
};

}  // namespace renderkit
