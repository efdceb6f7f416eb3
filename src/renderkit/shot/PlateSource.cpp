#include "renderkit/shot/PlateSource.h"

#include "renderkit/Failure.h"
#include "renderkit/video/PixelBufferFactory.h"

namespace renderkit {
namespace {

class PlateSource : public FrameSource {
 public:
  void render(const FrameRequest&, PixelBuffer& frame, std::stop_token stop) override {
    checkCancellation(stop);
    PixelBufferFactory::fill(frame, 0.07, 0.07, 0.08);
  }
};

}  // namespace

std::unique_ptr<FrameSource> makePlateSource(const FrameSourceSetup&) {
  return std::make_unique<PlateSource>();
}

}  // namespace renderkit
