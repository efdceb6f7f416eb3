#include "store/AgentStore.h"

#include "base/Failure.h"
#include "platform/Platform.h"
#include "store/StoreMigrations.h"

namespace vorlane {

AgentStore::AgentStore(const std::string& directory, DatabasePool::Options options)
    : pool_(directory + "/Vorlane.sqlite", storeMigrator(), options) {}

std::shared_ptr<AgentStore> AgentStore::open(const Places& places, std::string_view appGroup) {
  const auto container = containerForAppGroup(places, appGroup);
  if (!container) {
    throw DomainFailure("AgentStore", 1, "App Group container unavailable for " + std::string(appGroup));
  }
  return std::make_shared<AgentStore>(*container);
}

}  // namespace vorlane
