#pragma once

#include "base/Date.h"

#include <string>

namespace vorlane {

enum class VorlaneApp { ledgerly, sceneward };

/// A recent sheet or project as it is shown.
struct RecentItem {
  /// The id of the sheet or project.
  std::string id;
  VorlaneApp app = VorlaneApp::ledgerly;
  std::string title;
  std::string subtitle;
  Date updatedAt;
};

}  // namespace vorlane
