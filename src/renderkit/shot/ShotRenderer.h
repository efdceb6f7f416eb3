#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/shot/FrameSource.h"
#include "renderkit/shot/RenderOptions.h"

#include <filesystem>
#include <functional>
#include <stop_token>

namespace renderkit {

/// Turns a decoded bundle into a video file. Renders on the calling thread; one render at a
/// time for each caller.
class ShotRenderer {
 public:
  /// Called on the rendering thread after each frame.
  using OnProgress = std::function<void(const RenderProgress& progress)>;

  virtual ~ShotRenderer() = default;

  /// Gives the path of the finished file. Any failure ends the render and nothing is tried
  /// again: the failures of scene, picture and video, and CancelledFailure soon after a stop
  /// was requested. A file that was begun stays at its path; the next render removes it.
  virtual std::filesystem::path render(const BakeBundle& bundle, const RenderOptions& options,
                                       const OnProgress& onProgress, Notices& notices,
                                       std::stop_token stop) = 0;
};

/// Replays the animation frame by frame, takes each picture from a source, and encodes it.
class RealityKitShotRenderer : public ShotRenderer {
 public:
  enum class Frames { picture, plate };

  explicit RealityKitShotRenderer(Frames frames);
  /// With a source of one's own, over scenes with vertices.
  explicit RealityKitShotRenderer(FrameSourceFactory factory);

  std::filesystem::path render(const BakeBundle& bundle, const RenderOptions& options,
                               const OnProgress& onProgress, Notices& notices, std::stop_token stop) override;

 private:
  FrameSourceFactory factory_;
  bool keepVertices_ = true;
};

/// The escape hatch: fails at once with RenderError::metalRendererNotImplemented.
class MetalShotRenderer : public ShotRenderer {
 public:
  std::filesystem::path render(const BakeBundle& bundle, const RenderOptions& options,
                               const OnProgress& onProgress, Notices& notices, std::stop_token stop) override;
};

}  // namespace renderkit
