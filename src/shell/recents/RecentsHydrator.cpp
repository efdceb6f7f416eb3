#include "shell/recents/RecentsHydrator.h"

#include "shell/recents/RelativeTime.h"

namespace vorlane {

std::optional<RecentItem> RecentsHydrator::hydrate(const RecentEntryRow& row) const {
  const auto item = [&](VorlaneApp app, const char* kind, const auto& entity) -> std::optional<RecentItem> {
    if (!entity) return std::nullopt;
    return RecentItem{.id = row.entityID,
                      .app = app,
                      .title = entity->title,
                      .subtitle = kind + abbreviatedRelativeTime(entity->updatedAt, clock_(), calendar_),
                      .updatedAt = entity->updatedAt};
  };
  if (row.app == "ledgerly")
    return item(VorlaneApp::ledgerly, "Sheet · updated ", ledgerly_.fetch(row.entityID));
  if (row.app == "sceneward")
    return item(VorlaneApp::sceneward, "Project · updated ", sceneward_.fetch(row.entityID));
  return std::nullopt;
}

}  // namespace vorlane
