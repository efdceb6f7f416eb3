#include "renderkit/shot/ShotRenderer.h"

#include "renderkit/Failure.h"
#include "renderkit/shot/PlateSource.h"
#include "renderkit/shot/RenderError.h"
#include "renderkit/shot/Shot.h"
#include "renderkit/video/EncodeError.h"
#include "renderkit/video/H265VideoWriter.h"
#include "renderkit/video/OutputPath.h"
#include "renderkit/video/PixelBufferFactory.h"
#include "renderkit/video/VideoLimits.h"

#include <fmt/format.h>

#include <utility>

namespace renderkit {
namespace {

void requireCountable(std::int64_t frameCount) {
  if (frameCount <= VideoLimits::mostFrames) return;
  throw EncodeError::writerSetupFailed(
      fmt::format("frameCount {} is beyond {}", frameCount, VideoLimits::mostFrames));
}

/// "mp4", or for a part "10-19.mp4".
std::string extension(const RenderOptions& options) {
  if (!options.frames) return "mp4";
  return fmt::format("{}-{}.mp4", options.frames->first, options.frames->last);
}

}  // namespace

RealityKitShotRenderer::RealityKitShotRenderer(Frames frames)
    : factory_(frames == Frames::plate ? makePlateSource : makePictureSource),
      keepVertices_(frames == Frames::picture) {}

RealityKitShotRenderer::RealityKitShotRenderer(FrameSourceFactory factory) : factory_(std::move(factory)) {}

std::filesystem::path RealityKitShotRenderer::render(const BakeBundle& bundle, const RenderOptions& options,
                                                     const OnProgress& onProgress, Notices& notices,
                                                     std::stop_token stop) {
  Shot shot(bundle, options, notices, keepVertices_);
  // What can be refused is refused before the pictures are prepared and any file is touched.
  const auto components = OutputPath::safeComponents(bundle.manifest.outputFolderPath);
  H265VideoWriter::timescale(bundle.manifest.fps);
  const auto [width, height] = shot.size();
  requireCountable(shot.frameCount());
  checkCancellation(stop);
  shot.prepare(factory_);

  const auto output = OutputPath::outputURL(options.outputBaseDirectory, components, extension(options));
  H265VideoWriter::Options writing{.encoder = options.encoder};
  if (options.frames) writing.part = {.frames = *options.frames, .frameCount = shot.frameCount()};
  H265VideoWriter writer(output, width, height, bundle.manifest.fps, writing);
  PixelBufferFactory buffers(width, height);
  const auto frames = shot.frames();
  for (auto frame = frames.first; frame <= frames.last; ++frame) {
    checkCancellation(stop);
    auto picture = buffers.buffer();
    shot.render(frame, picture, stop);
    writer.append(std::move(picture), frame, stop);
    onProgress({.frameIndex = frame - frames.first, .frameCount = frames.last - frames.first + 1});
  }
  writer.finish(stop);
  return output;
}

std::filesystem::path MetalShotRenderer::render(const BakeBundle&, const RenderOptions&, const OnProgress&,
                                                Notices&, std::stop_token) {
  throw RenderError::metalRendererNotImplemented();
}

}  // namespace renderkit
