// Stands in for picture/ in a build without it.
#include "renderkit/Failure.h"
#include "renderkit/shot/FrameSource.h"

namespace renderkit {

std::unique_ptr<FrameSource> makePictureSource(const FrameSourceSetup&) {
  throw Failure("[render] this build shows the plate alone");
}

}  // namespace renderkit
