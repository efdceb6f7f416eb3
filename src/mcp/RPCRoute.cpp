#include "mcp/RPCRoute.h"

#include "mcp/MessageExchange.h"

#include <string_view>
#include <utility>

namespace vorlane {

RPCRoute::RPCRoute(std::shared_ptr<MCPServer> server, std::shared_ptr<AgentBearerStore> bearerStore)
    : server_(std::move(server)), bearerStore_(std::move(bearerStore)) {}

std::optional<HTTPMessage> RPCRoute::answerToHead(const HTTPRequest& head) {
  if (head.method != "POST" || head.path != "/rpc") return notFoundMessage();
  if (!isAuthorised(head.headers)) return plainMessage(401, "unauthorized", "text/plain");
  if (!server_) return plainMessage(503, "mcp access disabled", "text/plain");
  return std::nullopt;
}

/// The head is judged by what holds now, when the whole request is there.
Task<HTTPMessage> RPCRoute::answer(HTTPRequest request) {
  if (auto refusal = answerToHead(request)) co_return *std::move(refusal);
  co_return co_await answerCall(std::move(request.body));
}

/// The scheme is compared with its letter case, unlike the header's name.
bool RPCRoute::isAuthorised(const HTTPHeaders& headers) const {
  static constexpr std::string_view scheme = "Bearer ";
  const auto header = headers.find("authorization");
  if (header == headers.end() || !header->second.starts_with(scheme)) return false;
  return bearerStore_->validate(std::string_view(header->second).substr(scheme.size()));
}

/// A notification is answered like any other call: over HTTP each request gets
/// its response.
Task<HTTPMessage> RPCRoute::answerCall(std::string body) const {
  auto exchange = co_await exchangeMessage(server_, std::move(body));
  co_return plainMessage(exchange.failed ? 400 : 200, std::move(exchange.answer), "application/json");
}

}  // namespace vorlane
