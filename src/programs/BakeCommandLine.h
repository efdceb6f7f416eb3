#pragma once

#include "renderkit/jobs/RenderJobManager.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorlane::bake {

/// The command line is not one that the program takes; what() is the line to print.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

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

  /// Throws UsageError.
  static CommandLine parse(const std::vector<std::string>& arguments);
};

/// How the program is called, several lines.
extern const char usage[];

}  // namespace vorlane::bake
