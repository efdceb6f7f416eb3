#pragma once

#include "base/Date.h"
#include "mcp/JSONRPC.h"
#include "mcp/MCPRequestContext.h"
#include "mcp/MCPStatusRecorder.h"
#include "mcp/ToolDefinition.h"
#include "mcp/ToolRegistry.h"

#include <functional>
#include <memory>
#include <optional>
#include <variant>

namespace vorlane {

/// The three questions that the server asks about rights. All are called from
/// any thread, many at once.
struct MCPServerRights {
  /// Who this request runs for.
  std::function<Identity(const JSONRPCRequest&)> identityForRequest;
  /// May this identity proceed, and with this requirement. A throw counts as no.
  std::function<Task<bool>(std::optional<AdminAccessRequirement>, Identity)> authorize;
  /// Takes a mark of the account now; its answer tells whether that mark still holds.
  std::function<AccountFence(const Identity&)> accountFence;
};

/// The heart of the Model Context Protocol server, apart from any transport:
/// one request in, one response out. Keeps nothing per connection. A call that
/// begins for one account never completes silently for another: the account is
/// checked before, around and after each handler.
class MCPServer {
 public:
  MCPServer(std::shared_ptr<ToolRegistry> registry, MCPServerRights rights, Clock clock = now);

  /// Answers one request on the caller's executor, which should be concurrent.
  /// Never throws: every failure ends as an error response. Notifications are
  /// answered too; dropping that answer is the transport's affair. The caller
  /// keeps the server alive meanwhile.
  Task<JSONRPCResponse> handle(JSONRPCRequest request);

  const ToolRegistry& registry() const { return *registry_; }
  const MCPStatusRecorder& statusRecorder() const { return statusRecorder_; }

 private:
  using Outcome = std::variant<JSONMap, JSONRPCError>;

  Task<Outcome> answer(JSONRPCRequest request);
  Task<Outcome> listTools(JSONRPCRequest request);
  Task<Outcome> callTool(JSONRPCRequest request);
  Task<bool> mayProceed(std::optional<AdminAccessRequirement> requirement, Identity identity);
  /// The mark still holds and the request still runs for the same person.
  bool isSameAccount(const JSONRPCRequest& request, const Identity& identity, const AccountFence& fence);

  std::shared_ptr<ToolRegistry> registry_;
  MCPServerRights rights_;
  Clock clock_;
  MCPStatusRecorder statusRecorder_;
};

}  // namespace vorlane
