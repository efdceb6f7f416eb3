#include "shell/AppDelegate.h"

#include "base/ShellLog.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "mcp/UnixSocketTransport.h"
#include "shell/AgentStatus.h"
#include "shell/IncomingURL.h"
#include "store/AgentStore.h"
#include "store/StoreNotifications.h"
#include "tools/ledgerly/LedgerlyToolModule.h"
#include "tools/sceneward/ScenewardToolModule.h"
#include "tools/suite/VorlaneToolModule.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlane {
namespace {

/// The address of an endpoint of the Ledgerly web API.
std::string ledgerlyEndpoint(const Deployment& deployment, std::string_view path) {
  return deployment.ledgerlyBase.value_or("") + std::string(path);
}

}  // namespace

AppDelegate::AppDelegate(Settings settings, Runtime& runtime, MainLoop& main)
    : settings_(std::move(settings)),
      runtime_(runtime),
      main_(main),
      account_(settings_.places, settings_.deployment, runtime.io(), runtime.concurrent()),
      preferences_(*account_.standardDefaults, shellLog),
      storeNotifications_(std::make_shared<StoreNotifications>(account_.signals, main.executor())) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
  openStore();
  if (store_) {
    spawn(main_.executor(), "service start", [this]() -> Task<> {
      // A task of its own: what follows here does not wait for it.
      co_await boost::asio::post(boost::asio::use_awaitable);
      startServices();
    });
  }
  applicationOpen(settings_.urls);
}

void AppDelegate::openStore() {
  try {
    store_ = AgentStore::open(settings_.places, appGroupIdentifier);
    shellLog("agent store opened OK");
  } catch (const std::exception& error) {
    shellLog("agent store open failed: " + describe(error));
  }
}

void AppDelegate::startServices() {
  lifecycle_.start(lifecycleEnvironment());

  syncer_.stop();
  const auto currentUser = account_.currentUser();
  // Access that was granted to whoever was signed in before must not wait for
  // the first answer of the cloud to end.
  if (!account_.gate->isEnabled(currentUser())) {
    try {
      account_.gate->set(false, std::nullopt);
    } catch (const std::exception& error) {
      shellLog("mcp: access could not be cleared: " + describe(error));
    }
  }
  syncer_.start({
      .gate = account_.gate,
      .endpoint = ledgerlyEndpoint(settings_.deployment, settings_.deployment.profilePath),
      .currentUser = currentUser,
      .bearer = account_.bearer(),
      .runner = ledgerlyNetwork(),
      .log = shellLog,
      .refreshAction = [this]() -> Task<> {
        co_await onExecutor(main_.executor(), [this]() -> Task<> {
          lifecycle_.stop();
          lifecycle_.start(lifecycleEnvironment());
          co_return;
        });
      },
      .notifications = &account_.notifications,
      .executor = runtime_.concurrent(),
  });
}

/// The network for requests to the Ledgerly web API, which have nowhere to go when
/// the deployment names no base.
NetworkRunner AppDelegate::ledgerlyNetwork() const {
  if (settings_.deployment.ledgerlyBase) return account_.network;
  return [](URLRequest) -> Task<URLResponse> {
    throw TransportFailure(0, "the deployment names no \"ledgerlyBase\"");
    co_return URLResponse();
  };
}

MCPLifecycle::Environment AppDelegate::lifecycleEnvironment() const {
  return {
      .bearerStore = account_.bearerStore,
      .gate = account_.gate,
      .currentUser = account_.currentUser(),
      .log = shellLog,
      .accountGeneration = [epoch = account_.epoch] { return static_cast<std::uint64_t>(epoch->value()); },
      .bearer = account_.bearer(),
      .runner = ledgerlyNetwork(),
      .adminEndpoint = ledgerlyEndpoint(settings_.deployment, "/api/ecosystem/admin-access/me"),
      .registerModules = moduleMaker(),
      .makeSocket = socketMaker(),
      .port = settings_.port,
      .io = runtime_.io(),
      .concurrent = runtime_.concurrent(),
  };
}

std::function<void(const std::shared_ptr<ToolRegistry>&)> AppDelegate::moduleMaker() const {
  return [store = store_, notifications = storeNotifications_, profile = account_.profile(),
          concurrent = runtime_.concurrent()](const std::shared_ptr<ToolRegistry>& registry) {
    registry->registerModule(
        std::make_shared<ScenewardToolModule>(ScenewardQueries(store, notifications), registry));
    registry->registerModule(std::make_shared<LedgerlyToolModule>(
        LedgerlyQueries(store, notifications), std::vector<LedgerlyToolSet>(),
        LedgerlyImportTool::Filing{.recordList = nullptr, .executor = concurrent}));
    registry->registerModule(
        std::make_shared<VorlaneToolModule>(RecentsQueries(store, notifications), profile));
  };
}

/// Without a container there is no place for the socket.
std::function<std::unique_ptr<SocketTransport>(std::shared_ptr<MCPServer>)> AppDelegate::socketMaker() const {
  if (!settings_.places.container) return nullptr;
  return [path = settings_.places.assistantsSocket(), io = runtime_.io(),
          concurrent = runtime_.concurrent()](std::shared_ptr<MCPServer> server) {
    return std::make_unique<UnixSocketTransport>(std::move(server), path, io, concurrent);
  };
}

void AppDelegate::applicationOpen(const std::vector<std::string>& urls) {
  for (const auto& url : urls) shellLog(ignoredURLLine(url));
}

JSONMap AppDelegate::status() const {
  auto status = accountStatus(settings_.places, account_, store_);
  status["running"] = true;
  status["serving"] = lifecycle_.isServing();
  if (const auto port = lifecycle_.httpPort())
    status["endpoint"] = fmt::format("http://127.0.0.1:{}/rpc", *port);
  if (const auto socket = lifecycle_.socketPath()) status["socket"] = *socket;
  return status;
}

}  // namespace vorlane
