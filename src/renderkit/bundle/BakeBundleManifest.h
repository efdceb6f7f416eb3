#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace renderkit {

/// The shot's slate texts.
struct BakeBundleSlates {
  std::string project;
  std::string scene;
  std::string setup;
  std::string shot;
  bool operator==(const BakeBundleSlates&) const = default;
};

/// Which overlays the picture carries.
struct BurnInConfig {
  bool title = false;
  std::optional<std::string> titleText;
  bool slate = false;
  bool settings = false;
  bool legal = false;
  std::optional<std::string> legalText;
  bool watermark = false;
  /// A key of the textures, else the text itself.
  std::optional<std::string> watermarkLogo;
  bool operator==(const BurnInConfig&) const = default;
};

/// "manifest.json": what the shot is called, and the size, rate and length of its video.
struct BakeBundleManifest {
  std::int64_t version = 1;
  BakeBundleSlates slates;
  /// Frames per second.
  double fps = 0;
  /// Pixels.
  std::int64_t width = 0;
  std::int64_t height = 0;
  std::int64_t frameCount = 0;
  /// The shot has no motion.
  bool isStatic = false;
  BurnInConfig burnIn;
  /// Asks for the ray-traced picture.
  bool rayTracing = false;
  /// Folder below the render base, with "/" between its components.
  std::string outputFolderPath;
  /// ISO 8601 time of the bake.
  std::string createdAtIso;
  bool operator==(const BakeBundleManifest&) const = default;
};

}  // namespace renderkit
