#include "shell/AgentStatus.h"

#include "base/JSONArguments.h"
#include "base/ShellLog.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"
#include "store/ScenewardCheckpointQueue.h"
#include "sync/SyncJournal.h"

namespace vorlane {

JSONMap accountStatus(const Paths& paths, const AccountServices& services,
                      const std::shared_ptr<AgentStore>& store, const SyncJournal* journal) {
  auto owner = services.session->currentUser();
  const auto record = services.tokens->load();
  if (!record || record->owner != owner) owner.reset();

  JSONMap status{{"account", nullptr}, {"mcpAccess", services.gate->isEnabled(owner)},
                 {"store", nullptr},   {"running", false},
                 {"serving", false},   {"endpoint", nullptr},
                 {"socket", nullptr},  {"sync", nullptr}};
  if (const auto log = shellLogPath(); !log.empty()) status["log"] = log;
  if (paths.container) status["store"] = paths.database();
  DocumentTable::Counts sheets;
  ScenewardCheckpointQueue::Counts checkpoints;
  if (owner) {
    status["account"] = JSONMap{{"sub", *owner},
                                {"email", json::stringOr(record->idClaims, "email")},
                                {"name", json::stringOr(record->idClaims, "name")}};
    if (store) {
      sheets = LedgerlyQueries(store, nullptr).counts(*owner);
      checkpoints = ScenewardCheckpointQueue(store).counts(*owner);
    }
    if (journal != nullptr) status["sync"] = journal->report(*owner);
  }
  status["pending"] = JSONMap{{"sheets", sheets.pending}, {"checkpoints", checkpoints.pending}};
  status["blocked"] = JSONMap{{"sheets", sheets.blocked}, {"checkpoints", checkpoints.blocked}};
  return status;
}

}  // namespace vorlane
