#include "renderkit/burnin/BurnIns.h"
#include "renderkit/picture/Exposure.h"
#include "renderkit/picture/ImageDecoder.h"
#include "renderkit/picture/LightColor.h"
#include "renderkit/picture/LightRig.h"
#include "renderkit/picture/PictureEngine.h"
#include "renderkit/picture/ShotCamera.h"
#include "renderkit/shot/FrameSource.h"
#include "renderkit/shot/RenderError.h"
#include "renderkit/shot/TransformReplay.h"

#include <new>
#include <set>

namespace renderkit {
namespace picture {
namespace {

using Textures = std::map<std::string, std::shared_ptr<const Texture>>;

/// Decodes the images that meshes refer to. One that cannot be used is null, with a notice.
Textures decodeTextures(const BakeBundle& bundle, Workers& workers, Notices& notices) {
  std::set<std::string> wanted;
  for (const auto& record : bundle.meshTable.records) {
    if (record.material.textureRef) wanted.insert(*record.material.textureRef);
  }
  const std::vector<std::string> keys(wanted.begin(), wanted.end());
  std::vector<std::shared_ptr<const Texture>> decoded(keys.size());
  std::vector<std::string> failures(keys.size());
  workers.run(keys.size(), [&](std::size_t i, std::size_t) {
    try {
      const auto file = bundle.textures.find(keys[i]);
      if (file == bundle.textures.end()) throw ImageError("it has no entry");
      auto image = decodeImage(file->second.span());
      decoded[i] = std::make_shared<Texture>(image.width, image.height, std::move(image.pixels));
    } catch (const ImageError& error) {
      failures[i] = error.text();
    }
  });
  Textures textures;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    textures[keys[i]] = decoded[i];
    if (!decoded[i]) {
      notices.add("the texture \"" + keys[i] + "\" cannot be used (" + failures[i] +
                  "); the colour stands in for it");
    }
  }
  return textures;
}

std::vector<Instance> instancesOf(const FrameSourceSetup& setup, const Textures& textures,
                                  const LightRig& rig) {
  const auto& records = setup.bundle.meshTable.records;
  std::vector<Instance> instances(setup.scene.meshes.size());
  for (std::size_t i = 0; i < instances.size(); ++i) {
    const auto& entity = setup.scene.meshes[i].entity;
    const auto& color = entity.material.color;
    auto& material = instances[i].material;
    instances[i].geometry = entity.mesh;
    material.albedo = {linearFromSRGB(color.red), linearFromSRGB(color.green), linearFromSRGB(color.blue)};
    material.opacity = std::isfinite(color.alpha) ? std::clamp(color.alpha, 0.0f, 1.0f) : 1;
    material.doubleSided = records[i].material.doubleSided;
    if (const auto& reference = records[i].material.textureRef) material.texture = textures.at(*reference);
  }
  for (const auto fixture : rig.fixtures()) instances[fixture].isFixture = true;
  return instances;
}

Quality qualityOf(const RenderOptions& options) {
  constexpr int mostSamples = 4096;
  return {options.rayTracing,
          std::clamp(options.samples.value_or(options.rayTracing ? 16 : 4), 1, mostSamples)};
}

/// The part of a frame that the shutter is open.
double shutterOf(const PhotometryExposure& exposure) {
  const double part = exposure.shutterAngleDeg / 360;
  return part > 0 ? std::min(part, 1.0) : 0;
}

class PictureSource final : public FrameSource {
 public:
  explicit PictureSource(const FrameSourceSetup& setup)
      : setup_(setup),
        workers_(setup.options.threads),
        quality_(qualityOf(setup.options)),
        exposure_(exposure(setup.bundle.photometry, setup.notices)),
        rig_(setup, exposure_),
        scene_(
            instancesOf(setup, decodeTextures(setup.bundle, workers_, setup.notices), rig_),
            [&](std::size_t mesh) { return setup.bundle.meshTable.records[mesh].id; }, workers_),
        engine_(scene_, workers_, setup.width, setup.height, quality_),
        shutter_(quality_.rayTraced ? shutterOf(setup.bundle.photometry.exposure) : 0),
        burnIns_(setup.bundle, setup.width, setup.height, setup.notices) {
    // The overall view is of the first frame, whichever part is rendered.
    place(0, true);
    const auto aspect = static_cast<float>(setup.width) / static_cast<float>(setup.height);
    const double tStop = setup.bundle.photometry.exposure.tStop;
    camera_.emplace(setup.camera, scene_.bounds(), aspect, shutter_,
                    quality_.rayTraced && std::isfinite(tStop) ? tStop : 0, setup.notices);
  }

  void render(const FrameRequest& request, PixelBuffer& frame, std::stop_token stop) override {
    const auto index = request.frameIndex;
    place(index, false);
    View view{.camera = camera_->at(index),
              .lights = rig_.at(index),
              .ambient = rig_.ambient(),
              .slope = rig_.slope(),
              .scale = static_cast<float>(exposure_.scale),
              .frame = static_cast<std::uint32_t>(index)};
    engine_.render(view, frame, stop);
    burnIns_.draw(frame, {.frameIndex = index,
                          .cameraId = setup_.camera ? setup_.camera->cameraId : std::string(),
                          .camera = request.camera});
  }

 private:
  /// Moves what has moved since the last frame.
  void place(std::int64_t frame, bool all) {
    bool moved = false;
    motions_.resize(scene_.count());
    for (std::size_t i = 0; i < scene_.count(); ++i) {
      const auto motion = motionOf(i, frame);
      if (!all && motion == motions_[i]) continue;
      motions_[i] = motion;
      scene_.move(i, motion);
      moved = true;
    }
    if (moved) scene_.commit();
  }

  Motion motionOf(std::size_t mesh, std::int64_t frame) const {
    const Affine now(setup_.poser.matrix(mesh, frame));
    const auto& built = setup_.scene.meshes[mesh];
    const auto* track = shutter_ > 0 && built.shapeId ? setup_.poser.track(*built.shapeId) : nullptr;
    if (track == nullptr || track->perFrame.size() < 2) return {now, now, now};
    const auto sample = TransformReplay::sample(*track, frame);
    const auto towards = [&](std::int64_t other) {
      const auto there = TransformReplay::sample(*track, other);
      if (there == sample) return now;
      return Affine(TransformReplay::matrix(between(sample, there, shutter_ / 2)) * built.localMatrix);
    };
    return {towards(frame - 1), now, towards(frame + 1)};
  }

  const FrameSourceSetup setup_;
  Workers workers_;
  Quality quality_;
  Exposure exposure_;
  LightRig rig_;
  EmbreeScene scene_;
  PictureEngine engine_;
  double shutter_;
  BurnIns burnIns_;
  std::optional<ShotCamera> camera_;
  std::vector<Motion> motions_;
};

}  // namespace
}  // namespace picture

std::unique_ptr<FrameSource> makePictureSource(const FrameSourceSetup& setup) {
  try {
    return std::make_unique<picture::PictureSource>(setup);
  } catch (const std::bad_alloc&) {
    throw RenderError::meshBuildFailed("out of memory");
  }
}

}  // namespace renderkit
