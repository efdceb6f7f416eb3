#pragma once

#include "base/JSON.h"
#include "base/paths/Paths.h"
#include "shell/AccountServices.h"

#include <memory>

namespace vorlane {

class AgentStore;
class SyncJournal;

/// The part of the status that needs no running agent: "account" (an object, or
/// null while nobody is signed in), "mcpAccess", "store", "log" (where this process logs
/// to), "pending" and "blocked" (how
/// many rows of the person wait to be pushed, and how many the cloud refused, by kind),
/// "sync" (what SyncJournal reports; null without a `journal`), and the keys of a running
/// agent as they are without one: "running" and "serving" false, "endpoint" and "socket"
/// null. All of it is told of one person, also when the account changes meanwhile.
/// `store` is null where there is none to be read.
JSONMap accountStatus(const Paths& paths, const AccountServices& account,
                      const std::shared_ptr<AgentStore>& store, const SyncJournal* journal = nullptr);

}  // namespace vorlane
