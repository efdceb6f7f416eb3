#include "store/AgentStore.h"

#include "base/Failure.h"
#include "base/ShellLog.h"
#include "platform/Platform.h"
#include "store/StoreMigrations.h"

#include <fmt/format.h>

namespace vorlane {
namespace {

struct ExtraIndex {
  const char* name;
  const char* sql;
};

/// In both tables the columns that a list is made of lie behind a large one in a row, so
/// that without its index the list would read through every document, and the sorting of
/// waiting saves would copy their payloads.
constexpr ExtraIndex extraIndices[] = {
    {"idx_sceneward_projects_listing",
     "CREATE INDEX IF NOT EXISTS idx_sceneward_projects_listing ON sceneward_projects "
     "(owner_id, updated_at DESC, id, title, synced_at)"},
    {"idx_sceneward_checkpoint_waiting",
     "CREATE INDEX IF NOT EXISTS idx_sceneward_checkpoint_waiting ON sceneward_checkpoint_queue "
     "(owner_id, status, created_at, operation_id)"},
};

/// Adds the indices that are no migrations: they belong to this program alone, and the
/// family's programs need not know them. Without them everything works, so that a failure
/// ends in the log. Where they are there already no lock is taken.
void addIndices(Connection& connection) {
  for (const auto& [name, sql] : extraIndices) {
    try {
      connection.run(sql);
    } catch (const std::exception& error) {
      shellLog(fmt::format("store: the index {} could not be made: {}", name, describe(error)));
    }
  }
}

void prepare(Connection& connection) {
  storeMigrator().migrate(connection);
  addIndices(connection);
}

}  // namespace

AgentStore::AgentStore(const std::string& directory, DatabasePool::Options options)
    : pool_(directory + "/Vorlane.sqlite", &prepare, options) {}

std::shared_ptr<AgentStore> AgentStore::open(const Paths& paths, std::string_view appGroup) {
  const auto container = containerForAppGroup(paths, appGroup);
  if (!container) {
    throw DomainFailure("AgentStore", 1, "App Group container unavailable for " + std::string(appGroup));
  }
  return std::make_shared<AgentStore>(*container);
}

}  // namespace vorlane
