#pragma once

#include "base/Json.h"
#include "base/places/Places.h"
#include "shell/AccountServices.h"

#include <memory>
#include <optional>
#include <string>

namespace vorlane {

class AgentStore;

/// The part of the status that needs no running agent: "account" (an object, or
/// null while nobody is signed in), "mcpAccess", "store", and the keys of a
/// running agent as they are without one: "running" and "serving" false,
/// "endpoint" and "socket" null.
JSONMap accountStatus(const Places& places, const AccountServices& account);

/// Adds "pending": how many rows of the person wait to be pushed, by kind.
void addPendingCounts(JSONMap& status, std::shared_ptr<AgentStore> store,
                      const std::optional<std::string>& owner);

}  // namespace vorlane
