#include "mcp/MessageExchange.h"

#include "base/Failure.h"
#include "mcp/JSONRPCCodec.h"

#include <exception>
#include <utility>

namespace vorlane {
namespace {

/// A message that could not be taken, carried out or written is told as a parse error whatever it was.
std::string parseError(const std::exception_ptr& failure) {
  try {
    return JSONRPCCodec::encodeParseError(describe(failure));
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace

Task<MessageExchange> exchangeMessage(std::shared_ptr<MCPServer> server, std::string message) {
  MessageExchange exchange;
  std::exception_ptr failure;
  try {
    auto request = JSONRPCCodec::decodeRequest(message);
    message = {};
    const bool isNotification = request.isNotification;
    const auto response = co_await server->handle(std::move(request));
    // Said of a message that was carried out, also when its response has no JSON form.
    exchange.isNotification = isNotification;
    exchange.answer = JSONRPCCodec::encodeResponse(response);
    co_return exchange;
  } catch (...) {
    failure = std::current_exception();
  }
  exchange.failed = true;
  exchange.answer = parseError(failure);
  co_return exchange;
}

}  // namespace vorlane
