#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/shot/BuiltScene.h"
#include "renderkit/shot/RenderOptions.h"
#include "renderkit/shot/ScenePoser.h"
#include "renderkit/video/PixelBuffer.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace renderkit {

/// One frame that is wanted.
struct FrameRequest {
  /// Counted from 0 in the whole shot, also when a part of it is rendered.
  std::int64_t frameIndex = 0;
  /// frameIndex over the manifest's fps, in seconds.
  double timeS = 0;
  /// Posed at this frame: each mesh's entity.transform is its world matrix.
  const BuiltScene& scene;
  /// The chosen camera at this frame; nothing when the bundle has none, or none with samples.
  std::optional<CameraFrameSample> camera;
};

/// Makes the pictures of a shot, one after another, on the thread that renders it; it may
/// keep workers of its own.
class FrameSource {
 public:
  virtual ~FrameSource() = default;

  /// Fills every pixel of `frame`. Throws a Failure, and CancelledFailure soon after a
  /// stop was requested; the buffer's content is then undefined.
  virtual void render(const FrameRequest& request, PixelBuffer& frame, std::stop_token stop) = 0;
};

/// What a source is made from. All references outlive the source.
struct FrameSourceSetup {
  const BakeBundle& bundle;
  /// As built, with its geometry; the same scene as in each request.
  const BuiltScene& scene;
  /// Gives the matrices at other frames too, for blur and for lights that move.
  const ScenePoser& poser;
  /// The chosen camera's track, or null.
  const CameraTrack* camera = nullptr;
  /// Pixels, both even: the size of every buffer that it will fill.
  int width = 0;
  int height = 0;
  const RenderOptions& options;
  Notices& notices;
};

/// Makes a source for one render, before any file is touched. Throws a Failure;
/// geometry that cannot be built is RenderError::meshBuildFailed.
using FrameSourceFactory = std::function<std::unique_ptr<FrameSource>(const FrameSourceSetup& setup)>;

/// Shows the posed scene through the chosen camera, lit by the shot's photometry, with the
/// overlays that the manifest asks for. For machines that missingProcessorFeatures() finds fit.
std::unique_ptr<FrameSource> makePictureSource(const FrameSourceSetup& setup);

}  // namespace renderkit
