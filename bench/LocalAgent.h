#pragma once

#include "base/tasks/Runtime.h"
#include "mcp/MCPServer.h"
#include "mcp/ToolRegistry.h"
#include "mcp/UnixSocketTransport.h"
#include "net/HTTPTransport.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"
#include "store/ScenewardQueries.h"
#include "store/StoreNotifications.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace vorlane::bench {

/// The MCP server behind its transports, over a real store in a folder of its own,
/// for somebody who may do everything. Rights are asked as they are of the agent's
/// own server, without an account behind them.
class LocalAgent {
 public:
  /// `extra`: tools beside those of the sheets.
  explicit LocalAgent(std::vector<ToolDefinition> extra = {});
  ~LocalAgent();
  LocalAgent(const LocalAgent&) = delete;
  LocalAgent& operator=(const LocalAgent&) = delete;

  std::uint16_t port() const { return http_->port(); }
  const std::string& token() const { return token_; }
  const std::shared_ptr<MCPServer>& server() const { return server_; }
  /// The socket's path, in `folder()` as in a container.
  std::string socketPath() const { return socket_->path(); }
  LedgerlyQueries queries() const { return {store_, notifications_}; }
  ScenewardQueries scenes() const { return {store_, notifications_}; }
  const ToolRegistry& registry() const { return *registry_; }
  const std::filesystem::path& folder() const { return folder_; }
  Executor concurrent() const { return runtime_->concurrent(); }
  /// Makes sheets with a few items each, by the tools.
  void makeSheets(int count);

 private:
  std::filesystem::path folder_;
  std::unique_ptr<Runtime> runtime_;
  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<StoreNotifications> notifications_;
  std::shared_ptr<ToolRegistry> registry_;
  std::shared_ptr<MCPServer> server_;
  std::shared_ptr<HTTPTransport> http_;
  std::unique_ptr<UnixSocketTransport> socket_;
  std::string token_;
};

}  // namespace vorlane::bench
