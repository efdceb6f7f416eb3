#pragma once

#include "base/JSON.h"
#include "base/tasks/Task.h"
#include "tools/ledgerly/LedgerlyWebClient.h"

#include <string>

namespace vorlane {

/// The files and links on the items of a person's lists, as the web service keeps them.
/// Each operation posts a body for the account `ownerID` and returns the answer as it is;
/// LedgerlyWebClient::post says what is thrown. The client has to outlive them.
struct LedgerlyAttachmentClient {
  using Failure = LedgerlyWebClient::Failure;

  LedgerlyWebClient web;

  // Without a token these go out unsigned.
  Task<JSONMap> find(JSONMap body, std::string ownerID) const;
  Task<JSONMap> read(JSONMap body, std::string ownerID) const;
  Task<JSONMap> search(JSONMap body, std::string ownerID) const;
  /// The one that changes something there; it is not sent without a token.
  Task<JSONMap> attach(JSONMap body, std::string ownerID) const;
};

}  // namespace vorlane
