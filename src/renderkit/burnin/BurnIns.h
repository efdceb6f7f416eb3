#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/video/PixelBuffer.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace renderkit {

/// What the settings line tells of one frame besides the exposure.
struct FrameFacts {
  /// Counted from 0 in the whole shot.
  std::int64_t frameIndex = 0;
  /// Empty when the picture is seen through none.
  std::string cameraId;
  std::optional<CameraFrameSample> camera;
};

/// "HH:MM:SS:FF", counting whole frames at the rate rounded to the next whole number.
std::string timecode(std::int64_t frameIndex, double fps);

/// The overlays that the manifest asks for: title, slate, settings, legal line and watermark. They
/// stand on dark plates or have dark rims, inside the middle nine tenths of the picture, and their
/// size goes with its height. One thread at a time.
class BurnIns {
 public:
  /// The bundle must outlive it. A watermark that cannot be decoded is its text, with a notice.
  BurnIns(const BakeBundle& bundle, int width, int height, Notices& notices);
  ~BurnIns();

  /// Draws over the picture, which has the size told at the start.
  void draw(PixelBuffer& picture, const FrameFacts& facts) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace renderkit
