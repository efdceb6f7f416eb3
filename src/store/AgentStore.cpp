#include "store/AgentStore.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "platform/Platform.h"
#include "store/StoreMigrations.h"

namespace vorlane {
namespace {

/// Adds the index that a list of projects is read from. The dates lie behind the document
/// in a row, so that without it the list would read through every document. It is no
/// migration: it belongs to this program alone, and the family's programs need not know it.
/// Without it everything works, so that a failure ends in the log.
void addListingIndex(const DatabasePool& pool) {
  try {
    const bool present = pool.read([](Database& database) {
      return database.fetchCount(
                 "SELECT COUNT(*) FROM sqlite_master WHERE name = 'idx_sceneward_projects_listing'") > 0;
    });
    if (present) return;
    pool.write([](Database& database) {
      database.execute(
          "CREATE INDEX IF NOT EXISTS idx_sceneward_projects_listing ON sceneward_projects "
          "(owner_id, updated_at DESC, id, title, synced_at)");
    });
  } catch (const std::exception& error) {
    shellLog("store: the index of the list of projects could not be made: " + describe(error));
  }
}

}  // namespace

AgentStore::AgentStore(const std::string& directory, DatabasePool::Options options)
    : pool_(directory + "/Vorlane.sqlite", storeMigrator(), options) {
  addListingIndex(pool_);
}

std::shared_ptr<AgentStore> AgentStore::open(const Places& places, std::string_view appGroup) {
  const auto container = containerForAppGroup(places, appGroup);
  if (!container) {
    throw DomainFailure("AgentStore", 1, "App Group container unavailable for " + std::string(appGroup));
  }
  return std::make_shared<AgentStore>(*container);
}

}  // namespace vorlane
