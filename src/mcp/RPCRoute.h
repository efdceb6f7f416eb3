#pragma once

#include "access/AgentBearerStore.h"
#include "mcp/MCPServer.h"
#include "net/HTTPRoutes.h"

#include <memory>
#include <optional>
#include <string>

namespace vorlane {

/// `POST /rpc`: one JSON-RPC message in, its answer out, behind the bearer token.
class RPCRoute final : public HTTPRoute {
 public:
  /// `server` is null while MCP access is off: calls then end in 503, for who has
  /// the token.
  RPCRoute(std::shared_ptr<MCPServer> server, std::shared_ptr<AgentBearerStore> bearerStore);

  /// All that keeps a request from being carried out stands in its head.
  std::optional<HTTPMessage> answerToHead(const HTTPRequest& head) override;
  Task<HTTPMessage> answer(HTTPRequest request) override;

 private:
  Task<HTTPMessage> answerCall(std::string body) const;
  bool isAuthorised(const HTTPHeaders& headers) const;

  const std::shared_ptr<MCPServer> server_;
  const std::shared_ptr<AgentBearerStore> bearerStore_;
};

}  // namespace vorlane
