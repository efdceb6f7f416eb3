#pragma once

#include "renderkit/shot/RenderOptions.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace vorlane::bake {

/// One line on a terminal's standard error that shows how far a bundle is, its frames per
/// second and the time left. On anything but a terminal it shows nothing.
class ProgressBar {
 public:
  using Clock = std::chrono::steady_clock;

  ProgressBar();

  /// A new bundle begins.
  void begin(const std::string& name);
  void show(const renderkit::RenderProgress& progress);
  /// Takes the line away, so that another can stand there.
  void clear();

  /// The line itself: name, bar, frames, frames per second, time left.
  static std::string line(const std::string& name, const renderkit::RenderProgress& progress, double seconds,
                          int columns);

 private:
  bool terminal_;
  bool shown_ = false;
  std::string name_;
  Clock::time_point started_;
  Clock::time_point drawn_;
};

}  // namespace vorlane::bake
