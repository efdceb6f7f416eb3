#include "renderkit/shot/Shot.h"

#include "renderkit/shot/BundleSceneBuilder.h"
#include "renderkit/shot/SelectionError.h"
#include "renderkit/shot/TransformReplay.h"
#include "renderkit/video/EncodeError.h"
#include "renderkit/video/VideoLimits.h"

#include <fmt/format.h>

#include <algorithm>

namespace renderkit {

const CameraTrack* chooseCamera(const BakeAnimationDoc& animation,
                                const std::optional<std::string>& cameraId) {
  const auto& cameras = animation.cameras;
  auto found = cameraId ? std::ranges::find(cameras, *cameraId, &CameraTrack::cameraId)
                        : std::ranges::find(cameras, false, &CameraTrack::isRef);
  if (found == cameras.end() && cameraId) {
    std::string known;
    for (const auto& camera : cameras) known += (known.empty() ? "" : ", ") + camera.cameraId;
    throw SelectionError(
        fmt::format("there is no camera {}; the bundle has {}", *cameraId, known.empty() ? "none" : known));
  }
  if (found == cameras.end()) found = cameras.begin();
  return found == cameras.end() ? nullptr : &*found;
}

Shot::Shot(const BakeBundle& bundle, const RenderOptions& options, Notices& notices, bool keepVertices)
    : bundle_(bundle),
      options_(options),
      notices_(notices),
      scene_(BundleSceneBuilder::build(bundle, keepVertices ? BundleSceneBuilder::Vertices::keep
                                                            : BundleSceneBuilder::Vertices::checkOnly)),
      poser_(bundle.animation, scene_),
      camera_(chooseCamera(bundle.animation, options.cameraId)),
      frameCount_(std::max<std::int64_t>(bundle.manifest.frameCount, 1)) {
  // A camera without samples stands nowhere.
  if (camera_ != nullptr && camera_->perFrame.empty()) camera_ = nullptr;
  checkFrames();
}

void Shot::checkFrames() const {
  if (!options_.frames || options_.frames->last < frameCount_) return;
  throw SelectionError(fmt::format("there is no frame {}; the bundle has {}, counted from 0",
                                   options_.frames->last, frameCount_));
}

FrameRange Shot::frames() const {
  return options_.frames.value_or(FrameRange{.first = 0, .last = frameCount_ - 1});
}

Shot::Size Shot::size() const {
  const auto& manifest = bundle_.manifest;
  const auto even = [](const char* name, std::int64_t pixels) {
    if (pixels < VideoLimits::smallestSide || pixels > VideoLimits::largestSide) {
      throw EncodeError::writerSetupFailed(fmt::format("{} {} is not within {} to {}", name, pixels,
                                                       VideoLimits::smallestSide, VideoLimits::largestSide));
    }
    return static_cast<int>(pixels + pixels % 2);
  };
  const Size size{.width = even("width", manifest.width), .height = even("height", manifest.height)};
  if (size.width != manifest.width || size.height != manifest.height) {
    notices_.add(fmt::format("a video cannot have the odd size {}x{}; this one has {}x{}", manifest.width,
                             manifest.height, size.width, size.height));
  }
  return size;
}

void Shot::prepare(const FrameSourceFactory& factory) {
  const auto [width, height] = size();
  source_ = factory({.bundle = bundle_,
                     .scene = scene_,
                     .poser = poser_,
                     .camera = camera_,
                     .width = width,
                     .height = height,
                     .options = options_,
                     .notices = notices_});
}

void Shot::render(std::int64_t frame, PixelBuffer& picture, std::stop_token stop) {
  poser_.pose(scene_, frame);
  const FrameRequest request{
      .frameIndex = frame,
      .timeS = static_cast<double>(frame) / bundle_.manifest.fps,
      .scene = scene_,
      .camera = camera_ == nullptr ? std::nullopt : TransformReplay::sample(*camera_, frame)};
  source_->render(request, picture, std::move(stop));
}

}  // namespace renderkit
