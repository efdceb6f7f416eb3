#include "shell/AgentStatus.h"

#include "base/JsonArguments.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"

namespace vorlane {
namespace {

JSONValue account(const AccountServices& services) {
  const auto owner = services.session->currentUser();
  const auto record = services.tokens->load();
  if (!owner || !record) return nullptr;
  return JSONMap{{"sub", *owner},
                 {"email", json::stringOr(record->idClaims, "email")},
                 {"name", json::stringOr(record->idClaims, "name")}};
}

}  // namespace

JSONMap accountStatus(const Places& places, const AccountServices& services) {
  JSONMap status{{"account", account(services)},
                 {"mcpAccess", services.gate->isEnabled(services.session->currentUser())},
                 {"store", nullptr},
                 {"running", false},
                 {"serving", false},
                 {"endpoint", nullptr},
                 {"socket", nullptr}};
  if (places.container) status["store"] = places.database();
  return status;
}

void addPendingCounts(JSONMap& status, std::shared_ptr<AgentStore> store,
                      const std::optional<std::string>& owner) {
  std::size_t sheets = 0;
  if (owner) sheets = LedgerlyQueries(std::move(store), nullptr).pendingPush(*owner).size();
  status["pending"] = JSONMap{{"sheets", sheets}};
}

}  // namespace vorlane
