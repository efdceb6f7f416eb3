#pragma once

#include "base/tasks/Task.h"
#include "mcp/AgentBearerStore.h"
#include "mcp/HTTPMessage.h"
#include "mcp/HTTPRequest.h"
#include "mcp/MCPServer.h"
#include "mcp/RenderHTTPRoutes.h"

#include <memory>
#include <string>

namespace vorlane {

/// Decides what a request gets, whatever it came over. Callable from any thread
/// once it is set up.
class HTTPRouter {
 public:
  /// `server` is null while MCP access is off: calls then end in 503, for who has
  /// the token.
  HTTPRouter(std::shared_ptr<MCPServer> server, std::shared_ptr<AgentBearerStore> bearerStore);

  /// Before the first request; null for none.
  void setRenderRoutes(std::shared_ptr<RenderHTTPRoutes> routes) { renderRoutes_ = std::move(routes); }

  /// Never throws: every failure is an answer. The caller keeps the router alive.
  Task<HTTPMessage> answer(HTTPRequest request) const;

 private:
  Task<HTTPMessage> answerRender(HTTPRequest request) const;
  Task<HTTPMessage> answerCall(std::string body) const;
  bool isAuthorised(const HTTPHeaders& headers) const;

  std::shared_ptr<MCPServer> server_;
  std::shared_ptr<AgentBearerStore> bearerStore_;
  std::shared_ptr<RenderHTTPRoutes> renderRoutes_;
};

}  // namespace vorlane
