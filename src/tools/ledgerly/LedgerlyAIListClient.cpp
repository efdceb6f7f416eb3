#include "tools/ledgerly/LedgerlyAIListClient.h"

#include "base/Failure.h"

#include <exception>
#include <utility>

namespace vorlane {

using enum LedgerlyWebClient::WithoutToken;

Task<JSONMap> LedgerlyAIListClient::search(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/ai-lists/search", std::move(body), std::move(ownerID), refused);
}

Task<JSONMap> LedgerlyAIListClient::get(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/ai-lists/get", std::move(body), std::move(ownerID), refused);
}

Task<> LedgerlyAIListClient::record(std::string ownerID, JSONMap list) const {
  try {
    co_await web.post("/api/agent/ai-lists/record", std::move(list), std::move(ownerID), refused);
  } catch (...) {
    const auto error = describe(std::current_exception());
    log("ledgerly: adding the list to the Archive failed: " + cloud::excerpt(error));
  }
}

}  // namespace vorlane
