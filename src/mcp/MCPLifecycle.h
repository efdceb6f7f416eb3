#pragma once

#include "access/AccessGate.h"
#include "access/AgentBearerStore.h"
#include "access/MCPRequestAuthorizer.h"
#include "base/ShellLog.h"
#include "base/tasks/Poller.h"
#include "mcp/MCPServer.h"
#include "mcp/MCPStatusSnapshot.h"
#include "mcp/ToolRegistry.h"
#include "net/DescriptorReserve.h"
#include "net/HTTPRoutes.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vorlane {

class HTTPTransport;
class UnixSocketTransport;

/// The switch of the MCP server: wires registry, server and transports together,
/// takes them down and builds them anew. The HTTP transport comes up also while
/// access is off, since it carries other routes too. Main executor only.
class MCPLifecycle {
 public:
  /// What a start is given. The makers stand for what lies above this folder.
  struct Environment {
    std::shared_ptr<AgentBearerStore> bearerStore;
    std::shared_ptr<AccessGate> gate;
    /// The Ledgerly web API, and with it the account that the server is for.
    cloud::API api;
    Log log;
    /// Puts every tool module into the registry, in its order.
    std::function<void(const std::shared_ptr<ToolRegistry>&)> registerModules;
    /// Where the assistants' socket lies; nothing where there is no container for it.
    std::optional<std::string> socketPath;
    /// What HTTP serves beside `/rpc`.
    HTTPRoutes routes;
    /// 0 lets the system choose; a later start then asks for the same port again.
    std::uint16_t port = 17800;
    Executor io;
    Executor concurrent;
    /// Serves the clients; outlives the lifecycle, as the executors do.
    Poller* poller = nullptr;
    Clock clock = now;
  };

  MCPLifecycle();
  ~MCPLifecycle();
  MCPLifecycle(const MCPLifecycle&) = delete;
  MCPLifecycle& operator=(const MCPLifecycle&) = delete;

  /// Never fails: what does not come up is logged. Stops what runs first.
  void start(const Environment& environment);
  /// Takes the transports down. Calls that are still running on the old server
  /// get no successful result afterwards.
  void stop();

  MCPStatusSnapshot statusSnapshot() const;
  /// Whose access the last start asked about; nothing while nobody was signed in.
  const std::optional<std::string>& userAtStart() const { return userAtStart_; }
  /// Why HTTP does not listen; empty while it does.
  const std::string& httpFailure() const { return httpFailure_; }
  /// Whether a server answers, which is when access was on at the start.
  bool isServing() const { return server_ != nullptr; }
  /// Of the last start; null before the first.
  const std::shared_ptr<ToolRegistry>& registry() const { return registry_; }
  /// The port that HTTP listens on; nothing while it does not.
  std::optional<std::uint16_t> httpPort() const;
  /// The path that the socket listens at; nothing while it does not.
  std::optional<std::string> socketPath() const;

 private:
  std::shared_ptr<MCPServer> makeServer(const Environment& environment);
  void startSocket(const Environment& environment);
  void startHTTP(const Environment& environment);

  Clock clock_ = now;
  std::optional<std::string> userAtStart_;
  std::string httpFailure_;
  std::shared_ptr<ToolRegistry> registry_;
  std::shared_ptr<MCPServer> server_;
  /// True until the server is stopped; its fences look at it from any thread.
  std::shared_ptr<std::atomic<bool>> running_;
  std::unique_ptr<UnixSocketTransport> uds_;
  std::shared_ptr<HTTPTransport> http_;
  /// Of both transports.
  const std::shared_ptr<DescriptorReserve> reserve_ = std::make_shared<DescriptorReserve>();
  /// What the system chose when it was asked for any port.
  std::uint16_t chosenPort_ = 0;
};

}  // namespace vorlane
