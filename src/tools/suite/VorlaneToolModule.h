#pragma once

#include "base/JSON.h"
#include "mcp/ToolDefinition.h"
#include "store/RecentsQueries.h"

#include <functional>
#include <string>
#include <vector>

namespace vorlane {

/// The signed-in person's profile as an assistant is shown it. Called on the concurrent
/// executor, for each call anew; it may block shortly, as for a keyring.
using ProfileProvider = std::function<JSONMap()>;

/// The tools that span the suite's applications, namespace "vorlane": who the person is
/// and what they were working on.
class VorlaneToolModule : public ToolModule {
 public:
  VorlaneToolModule(RecentsQueries recents, ProfileProvider profileProvider);

  std::string toolNamespace() const override { return "vorlane"; }
  std::vector<ToolDefinition> tools() const override;

 private:
  RecentsQueries recents_;
  ProfileProvider profileProvider_;
};

}  // namespace vorlane
