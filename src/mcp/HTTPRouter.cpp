#include "mcp/HTTPRouter.h"

#include "base/Failure.h"
#include "base/Json.h"
#include "base/Text.h"
#include "mcp/MessageExchange.h"

#include <exception>
#include <string_view>

namespace vorlane {
namespace {

constexpr std::string_view plainText = "text/plain";
constexpr std::string_view json = "application/json";

bool isRenderPath(std::string_view path) {
  return path == "/render" || path.starts_with("/render/");
}

}  // namespace

HTTPRouter::HTTPRouter(std::shared_ptr<MCPServer> server, std::shared_ptr<AgentBearerStore> bearerStore)
    : server_(std::move(server)), bearerStore_(std::move(bearerStore)) {}

Task<HTTPMessage> HTTPRouter::answer(HTTPRequest request) const {
  if (renderRoutes_ && isRenderPath(request.path)) co_return co_await answerRender(std::move(request));
  if (request.method != "POST" || request.path != "/rpc") co_return plainMessage(404, "not found", plainText);
  if (!isAuthorised(request.headers)) co_return plainMessage(401, "unauthorized", plainText);
  if (!server_) co_return plainMessage(503, "mcp access disabled", plainText);
  co_return co_await answerCall(std::move(request.body));
}

/// The scheme is compared with its letter case, unlike the header's name.
bool HTTPRouter::isAuthorised(const HTTPHeaders& headers) const {
  static constexpr std::string_view scheme = "Bearer ";
  const auto header = headers.find("authorization");
  if (header == headers.end() || !header->second.starts_with(scheme)) return false;
  return bearerStore_->validate(std::string_view(header->second).substr(scheme.size()));
}

/// A notification is answered like any other call: over HTTP each request gets
/// its response.
Task<HTTPMessage> HTTPRouter::answerCall(std::string body) const {
  auto exchange = co_await exchangeMessage(server_, std::move(body));
  co_return plainMessage(exchange.failed ? 400 : 200, std::move(exchange.answer), json);
}

Task<HTTPMessage> HTTPRouter::answerRender(HTTPRequest request) const {
  std::exception_ptr failure;
  try {
    co_return renderMessage(co_await renderRoutes_->handle(std::move(request.method), std::move(request.path),
                                                           std::move(request.headers),
                                                           std::move(request.body)));
  } catch (...) {
    failure = std::current_exception();
  }
  const JSONMap body{{"error", validUTF8(describe(failure))}};
  co_return renderMessage({500, {{"Content-Type", std::string(json)}}, writeJSON(body)});
}

}  // namespace vorlane
