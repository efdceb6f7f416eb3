#include "mcp/MCPServer.h"

#include "base/JSONArguments.h"
#include "base/Text.h"
#include "base/paths/Version.h"

#include <exception>
#include <string>
#include <utility>

namespace vorlane {
namespace {

JSONRPCError error(long code, std::string message) {
  return {code, std::move(message), std::nullopt};
}

JSONRPCError accessDenied() {
  return error(JSONRPCErrorCode::accessDenied, "Current account access could not be confirmed");
}

JSONRPCError internalError(const std::exception_ptr& failure) {
  // A description may quote bytes from anywhere, and has to reach the client all the same.
  return error(JSONRPCErrorCode::internalError, validUTF8(describe(failure)));
}

JSONMap handshake() {
  return {{"capabilities", {{"tools", JSONMap()}}},
          {"protocolVersion", "2024-11-05"},
          {"serverInfo", {{"name", "VorlaneAgent"}, {"version", version}}}};
}

/// Whether content can be written where it will stand, one level below the result's own.
bool isWritable(const JSONValue& content) {
  try {
    std::string ignored;
    appendJSON(ignored, content, 2);
    return true;
  } catch (const JSONWriteFailure&) {
    return false;
  }
}

/// Whether the handler supplied content that goes out as it stands.
bool isReadyContent(const JSONValue* content) {
  if (content == nullptr || !content->is_array() || content->get_array().empty()) return false;
  for (const auto& element : content->get_array()) {
    if (!element.is_object()) return false;
    const auto* type = json::find(element.get_object(), "type");
    if (type == nullptr || !type->is_string()) return false;
  }
  return isWritable(*content);
}

/// A handler's result in the protocol's content form. Throws JSONWriteFailure.
JSONMap shaped(JSONMap result) {
  JSONMap out(2);
  if (auto* content = result.if_contains("_content"); isReadyContent(content)) {
    out.emplace("content", std::move(*content));
  } else {
    JSONMap item(2);
    item.emplace("text", writeJSON(result));
    item.emplace("type", "text");
    JSONArray items;
    items.push_back(std::move(item));
    out.emplace("content", std::move(items));
  }
  out.emplace("isError", false);
  return out;
}

JSONMap listed(const ToolDefinition& tool) {
  return {{"description", tool.description}, {"inputSchema", tool.inputSchema}, {"name", tool.name}};
}

}  // namespace

MCPServer::MCPServer(std::shared_ptr<ToolRegistry> registry, MCPServerRights rights, Clock clock)
    : registry_(std::move(registry)), rights_(std::move(rights)), clock_(std::move(clock)) {}

Task<JSONRPCResponse> MCPServer::handle(JSONRPCRequest request) {
  JSONRPCResponse response;
  if (request.id) response.id = *request.id;
  try {
    auto outcome = co_await answer(std::move(request));
    if (auto* result = std::get_if<JSONMap>(&outcome)) {
      response.result.emplace(std::move(*result));
    } else {
      response.error.emplace(std::get<JSONRPCError>(std::move(outcome)));
    }
  } catch (...) {
    response.error = internalError(std::current_exception());
  }
  co_return response;
}

Task<MCPServer::Outcome> MCPServer::answer(JSONRPCRequest request) {
  if (request.method == "initialize") co_return handshake();
  if (request.method == "initialized" || request.method == "notifications/initialized") co_return JSONMap();
  if (request.method == "tools/list") co_return co_await listTools(std::move(request));
  if (request.method == "tools/call") co_return co_await callTool(std::move(request));
  co_return error(JSONRPCErrorCode::methodNotFound, "unknown method: " + request.method);
}

Task<bool> MCPServer::mayProceed(std::optional<AdminAccessRequirement> requirement, Identity identity) {
  try {
    co_return co_await rights_.authorize(std::move(requirement), std::move(identity));
  } catch (...) {
    co_return false;
  }
}

bool MCPServer::isSameAccount(const JSONRPCRequest& request, const Identity& identity,
                              const AccountFence& fence) {
  return fence() && rights_.identityForRequest(request).userID == identity.userID;
}

Task<MCPServer::Outcome> MCPServer::listTools(JSONRPCRequest request) {
  const auto identity = rights_.identityForRequest(request);
  const auto fence = rights_.accountFence(identity);
  const bool allowed = co_await mayProceed(std::nullopt, identity);
  if (!allowed || !isSameAccount(request, identity, fence)) co_return accessDenied();

  JSONArray tools;
  for (const auto& tool : registry_->allTools()) {
    if (tool->adminAccess) {
      auto requirement = tool->adminAccess({});
      requirement.discoveryOnly = true;
      const bool visible = co_await mayProceed(std::move(requirement), identity);
      if (!visible) continue;
    }
    tools.push_back(listed(*tool));
  }
  if (!isSameAccount(request, identity, fence)) co_return accessDenied();
  JSONMap result;
  result.emplace("tools", std::move(tools));
  co_return result;
}

Task<MCPServer::Outcome> MCPServer::callTool(JSONRPCRequest request) {
  const auto* name = json::find(request.params, "name");
  if (name == nullptr || !name->is_string()) {
    co_return error(JSONRPCErrorCode::invalidParams, "tools/call requires 'name'");
  }
  const auto tool = registry_->tool(name->get_string());
  if (!tool) {
    co_return error(JSONRPCErrorCode::toolNotFound, "tool not found: " + std::string(name->get_string()));
  }
  const JSONMap none;
  const auto* given = json::object(request.params, "arguments");
  const auto identity = rights_.identityForRequest(request);
  const auto fence = rights_.accountFence(identity);
  std::optional<AdminAccessRequirement> requirement;
  if (tool->adminAccess) requirement = tool->adminAccess(given != nullptr ? *given : none);
  const bool allowed = co_await mayProceed(std::move(requirement), identity);
  if (!allowed || !isSameAccount(request, identity, fence)) co_return accessDenied();
  // A client that leaves thousands of questions behind would have the agent work for nobody.
  if (tool->onlyReads && !MCPRequestContext::isAnswerWanted()) co_return JSONMap();

  std::exception_ptr failure;
  try {
    auto result = co_await MCPRequestContext::run(fence, [&] {
      // Moved, since they may be a whole document; nobody looks at the request after this.
      return tool->handler(
          given != nullptr ? std::move(request.params.at("arguments").get_object()) : JSONMap(), identity);
    });
    statusRecorder_.record(tool->name, clock_(), false);
    co_return shaped(std::move(result));
  } catch (...) {
    failure = std::current_exception();
  }
  statusRecorder_.record(tool->name, clock_(), true);
  co_return internalError(failure);
}

}  // namespace vorlane
