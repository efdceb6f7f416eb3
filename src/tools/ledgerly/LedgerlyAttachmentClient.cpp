#include "tools/ledgerly/LedgerlyAttachmentClient.h"

#include <utility>

namespace vorlane {

using enum LedgerlyWebClient::WithoutToken;

Task<JSONMap> LedgerlyAttachmentClient::find(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/attachments/find", std::move(body), std::move(ownerID), sent);
}

Task<JSONMap> LedgerlyAttachmentClient::read(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/attachments/read", std::move(body), std::move(ownerID), sent);
}

Task<JSONMap> LedgerlyAttachmentClient::search(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/attachments/search", std::move(body), std::move(ownerID), sent);
}

Task<JSONMap> LedgerlyAttachmentClient::attach(JSONMap body, std::string ownerID) const {
  return web.post("/api/agent/attachments/attach", std::move(body), std::move(ownerID), refused);
}

}  // namespace vorlane
