#include "bench/LocalAgent.h"

#include "access/KeychainBearerStorage.h"
#include "base/Failure.h"
#include "mcp/MCPRequestContext.h"
#include "mcp/RPCRoute.h"
#include "platform/Platform.h"
#include "tests/integration/AgentProcess.h"
#include "tools/ledgerly/LedgerlyToolModule.h"
#include "tools/sceneward/ScenewardToolModule.h"

#include <fmt/format.h>

#include <cstdlib>

namespace vorlane::bench {
namespace {

class ExtraTools : public ToolModule {
 public:
  explicit ExtraTools(std::vector<ToolDefinition> tools) : tools_(std::move(tools)) {}
  std::string toolNamespace() const override { return "bench"; }
  std::vector<ToolDefinition> tools() const override { return tools_; }

 private:
  std::vector<ToolDefinition> tools_;
};

std::filesystem::path newFolder() {
  char name[] = "/tmp/vorlane-bench-XXXXXX";
  if (::mkdtemp(name) == nullptr) throw Failure("cannot make a folder below /tmp");
  return name;
}

MCPServerRights openRights() {
  return {.identityForRequest = [](const JSONRPCRequest&) { return Identity{"bench", {}}; },
          .authorize = [](std::optional<AdminAccessRequirement>, Identity) -> Task<bool> { co_return true; },
          .accountFence = [](const Identity&) -> AccountFence { return [] { return true; }; }};
}

}  // namespace

LocalAgent::LocalAgent(std::vector<ToolDefinition> extra)
    : folder_(newFolder()),
      runtime_(std::make_unique<Runtime>()),
      store_(std::make_shared<AgentStore>(folder_.string())),
      notifications_(std::make_shared<StoreNotifications>(
          makeSignalCenter(folder_ / "signals", runtime_->io(), runtime_->concurrent()),
          runtime_->concurrent())) {
  registry_ = std::make_shared<ToolRegistry>();
  registry_->registerModule(std::make_shared<LedgerlyToolModule>(queries()));
  registry_->registerModule(std::make_shared<ScenewardToolModule>(scenes(), registry_));
  registry_->registerModule(std::make_shared<ExtraTools>(std::move(extra)));
  server_ = std::make_shared<MCPServer>(registry_, openRights());
  const auto bearer = std::make_shared<AgentBearerStore>(std::make_shared<KeychainBearerStorage>(
      std::shared_ptr<SecretVault>(makeFileVault(folder_ / "vault"))));
  token_ = bearer->currentToken();
  const auto reserve = std::make_shared<DescriptorReserve>();
  HTTPRoutes routes;
  routes.add("/rpc", std::make_shared<RPCRoute>(server_, bearer));
  const auto startCall = [concurrent = runtime_->concurrent()](std::string name, TaskBody body) {
    MCPRequestContext::startCall(concurrent, std::move(name), std::move(body));
  };
  http_ = std::make_shared<HTTPTransport>(std::move(routes), 0, runtime_->io(), runtime_->poller(), startCall,
                                          reserve);
  http_->start();
  socket_ = std::make_unique<UnixSocketTransport>(server_, (folder_ / "mcp.sock").string(), runtime_->io(),
                                                  runtime_->concurrent(), runtime_->poller(), reserve);
  socket_->start();
}

LocalAgent::~LocalAgent() {
  http_->stop();
  socket_->stop();
  runtime_->stop();
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void LocalAgent::makeSheets(int count) {
  for (int i = 0; i < count; ++i) {
    const auto id = fmt::format("sheet-{}", i);
    test::call(port(), token_, "ledgerly_create_sheet",
               {{"sheetId", id}, {"title", fmt::format("Sheet {}", i)}});
    for (int item = 0; item < 5; ++item) {
      test::call(
          port(), token_, "ledgerly_add_item",
          {{"sheetId", id}, {"categoryId", "c"}, {"name", fmt::format("Item {}", item)}, {"qty", item}});
    }
  }
}

}  // namespace vorlane::bench
