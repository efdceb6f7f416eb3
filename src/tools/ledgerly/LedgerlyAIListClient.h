#pragma once

#include "base/JSON.h"
#include "base/ShellLog.h"
#include "base/tasks/Task.h"
#include "tools/ledgerly/LedgerlyWebClient.h"

#include <string>

namespace vorlane {

/// The Archive of the lists that were generated for a person. Each operation posts for the
/// account `ownerID`, and never without a token. The client has to outlive them.
struct LedgerlyAIListClient {
  LedgerlyWebClient web;
  Log log;

  // LedgerlyWebClient::post says what these throw.
  Task<JSONMap> search(JSONMap body, std::string ownerID) const;
  Task<JSONMap> get(JSONMap body, std::string ownerID) const;
  /// Files a list. Sends nothing when another account is in charge by then. Never
  /// fails: what goes wrong is logged.
  Task<> record(std::string ownerID, JSONMap list) const;
};

}  // namespace vorlane
