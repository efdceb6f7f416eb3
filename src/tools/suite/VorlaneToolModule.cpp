#include "tools/suite/VorlaneToolModule.h"

#include "base/JSONArguments.h"
#include "tools/ToolTable.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vorlane {
namespace {

constexpr std::int64_t usualLimit = 20;
/// How far back the last sheet and the last project are looked for.
constexpr std::int64_t contextLimit = 50;

struct Services {
  RecentsQueries recents;
  ProfileProvider profileProvider;
};

Task<JSONMap> getUser(Services services, JSONMap, Identity) {
  co_return services.profileProvider();
}

// Entries are handed out as they stand: titles are the business of the other tools.
Task<JSONMap> getRecent(Services services, JSONMap arguments, Identity identity) {
  const auto limit = json::integer(arguments, "limit").value_or(usualLimit);
  JSONArray recents;
  for (const auto& row : services.recents.recent(identity.userID, limit)) {
    recents.push_back(
        JSONMap{{"app", row.app}, {"entityId", row.entityID}, {"openedAt", iso8601Text(row.openedAt)}});
  }
  co_return JSONMap{{"recents", std::move(recents)}};
}

Task<JSONMap> getContext(Services services, JSONMap, Identity identity) {
  const auto rows = services.recents.recent(identity.userID, contextLimit);
  JSONMap context;
  for (const char* app : {"sceneward", "ledgerly"}) {
    const auto row = std::ranges::find(rows, app, &RecentEntryRow::app);
    if (row == rows.end()) {
      context[app] = nullptr;
    } else {
      context[app] = JSONMap{{"entityId", row->entityID}, {"openedAt", iso8601Text(row->openedAt)}};
    }
  }
  co_return context;
}

constexpr ToolProperty limited[] = {{"limit", "integer"}};

constexpr ToolEntry<Services> table[] = {
    {"vorlane_get_user",
     "Return the signed-in user's profile (sub, name, email, tier, mcp_access).",
     {},
     getUser},
    {"vorlane_get_recent", "Return the user's MRU across both apps.", {limited, {}}, getRecent},
    {"vorlane_get_context",
     "Return 'what is the user working on right now' — top recent per app + the active scene/sheet pointer "
     "if present.",
     {},
     getContext},
};

}  // namespace

VorlaneToolModule::VorlaneToolModule(RecentsQueries recents, ProfileProvider profileProvider)
    : recents_(std::move(recents)), profileProvider_(std::move(profileProvider)) {}

std::vector<ToolDefinition> VorlaneToolModule::tools() const {
  return toolDefinitions(table, Services{recents_, profileProvider_});
}

}  // namespace vorlane
