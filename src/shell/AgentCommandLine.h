#pragma once

#include "base/paths/Paths.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vorlane {

/// What vorlane-agent was started with.
struct AgentCommandLine {
  /// Run without tray, panel and settings window.
  bool headless = false;
  /// Start the desktop agent without showing its panel.
  bool background = false;
  /// Wait for the running agent to end instead of handing over to it.
  bool relaunch = false;
  bool version = false;
  PathOptions paths;
  /// The local HTTP port; 0 lets the system choose.
  std::uint16_t port = 17800;
  std::vector<std::string> urls;

  /// Throws UsageFailure naming the option.
  static AgentCommandLine parse(const Options::Words& words);
};

}  // namespace vorlane
