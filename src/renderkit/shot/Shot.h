#pragma once

#include "renderkit/Notices.h"
#include "renderkit/bundle/BakeBundle.h"
#include "renderkit/shot/BuiltScene.h"
#include "renderkit/shot/FrameSource.h"
#include "renderkit/shot/RenderOptions.h"
#include "renderkit/shot/ScenePoser.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>

namespace renderkit {

/// A bundle made ready to show: its scene, its camera, and the source of its pictures.
/// It refers to the bundle, the options and the notices, which must outlive it.
class Shot {
 public:
  /// Builds the scene and chooses the camera. Throws RenderError, BakeBundleError; SelectionError
  /// for a camera or frames that the bundle does not have.
  Shot(const BakeBundle& bundle, const RenderOptions& options, Notices& notices, bool keepVertices = true);

  /// Makes the source of the pictures; before any call of render. Throws a Failure.
  void prepare(const FrameSourceFactory& factory);

  /// Poses the scene at the frame and fills the picture, which has the size below.
  void render(std::int64_t frame, PixelBuffer& picture, std::stop_token stop);

  /// The size of the video: the manifest's, each side made even. Throws
  /// EncodeError::writerSetupFailed for one that cannot be encoded.
  struct Size {
    int width = 0;
    int height = 0;
  };
  Size size() const;

  /// The whole shot's frames, at least one.
  std::int64_t frameCount() const { return frameCount_; }
  /// Those to render: all, or the part that the options name.
  FrameRange frames() const;
  /// The chosen camera, or null.
  const CameraTrack* camera() const { return camera_; }
  const BuiltScene& scene() const { return scene_; }

 private:
  void checkFrames() const;

  const BakeBundle& bundle_;
  const RenderOptions& options_;
  Notices& notices_;
  BuiltScene scene_;
  ScenePoser poser_;
  const CameraTrack* camera_ = nullptr;
  std::int64_t frameCount_ = 1;
  std::unique_ptr<FrameSource> source_;
};

/// The camera that a shot is seen through: the named one, else the first that is no reference,
/// else the first; null where there is none. Throws SelectionError, which lists those there are.
const CameraTrack* chooseCamera(const BakeAnimationDoc& animation,
                                const std::optional<std::string>& cameraId);

}  // namespace renderkit
