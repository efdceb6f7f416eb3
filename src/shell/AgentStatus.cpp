#include "shell/AgentStatus.h"

#include "base/JsonArguments.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"

namespace vorlane {

JSONMap accountStatus(const Places& places, const AccountServices& services,
                      std::shared_ptr<AgentStore> store) {
  auto owner = services.session->currentUser();
  const auto record = services.tokens->load();
  if (!record || record->owner != owner) owner.reset();

  JSONMap status{{"account", nullptr}, {"mcpAccess", services.gate->isEnabled(owner)},
                 {"store", nullptr},   {"running", false},
                 {"serving", false},   {"endpoint", nullptr},
                 {"socket", nullptr}};
  if (places.container) status["store"] = places.database();
  std::int64_t sheets = 0;
  if (owner) {
    status["account"] = JSONMap{{"sub", *owner},
                                {"email", json::stringOr(record->idClaims, "email")},
                                {"name", json::stringOr(record->idClaims, "name")}};
    if (store) sheets = LedgerlyQueries(std::move(store), nullptr).pendingCount(*owner);
  }
  status["pending"] = JSONMap{{"sheets", sheets}};
  return status;
}

}  // namespace vorlane
