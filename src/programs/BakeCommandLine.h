#pragma once

#include "base/paths/Options.h"
#include "renderkit/jobs/RenderJobManager.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vorlane::bake {

/// What `vorlane-bake` was asked for.
struct CommandLine {
  enum class Mode { render, inspect, picture, join, help };

  Mode mode = Mode::render;
  std::filesystem::path output = ".";
  bool plate = false;
  bool json = false;
  renderkit::JobOptions options;
  /// Of --frame and --png.
  std::int64_t frame = 0;
  std::filesystem::path png;
  /// Bundles, or the parts of --join.
  std::vector<std::filesystem::path> files;

  /// Throws UsageFailure.
  static CommandLine parse(const Options::Words& words);
};

/// How the program is called, several lines.
extern const char usage[];

}  // namespace vorlane::bake
