#include "shell/AppDelegate.h"

#include "base/ShellLog.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "platform/NetworkPathMonitor.h"
#include "shell/AgentStatus.h"
#include "shell/IncomingURL.h"
#include "store/AgentStore.h"
#include "store/StoreNotifications.h"
#include "sync/LedgerlyPusher.h"
#include "sync/ScenewardPushTriggers.h"
#include "sync/ScenewardPusher.h"
#include "tools/ledgerly/LedgerlyToolModule.h"
#include "tools/sceneward/ScenewardToolModule.h"
#include "tools/suite/VorlaneToolModule.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlane {
namespace {

constexpr std::chrono::seconds sheetPushInterval{60};

/// The address of an endpoint of the Ledgerly web API.
std::string ledgerlyEndpoint(const Deployment& deployment, std::string_view path) {
  return deployment.ledgerlyBase.value_or("") + std::string(path);
}

/// The network for requests to `base`; without one they have nowhere to go.
NetworkRunner networkTo(const std::optional<std::string>& base, std::string_view key,
                        const NetworkRunner& network) {
  if (base) return network;
  return [key](URLRequest) -> Task<URLResponse> {
    throw TransportFailure(0, fmt::format("the deployment names no \"{}\"", key));
    co_return URLResponse();
  };
}

AppRecentsHolder::Settings recentsSettings(const AppDelegate::Settings& settings,
                                           const AccountServices& account, AgentPreferences& preferences,
                                           std::shared_ptr<StoreNotifications> storeNotifications,
                                           std::shared_ptr<SyncJournal> journal,
                                           std::shared_ptr<AsyncMutex> sheetExchange, Executor main,
                                           Executor concurrent) {
  return {.paths = settings.paths,
          .ledgerlyBase = settings.deployment.ledgerlyBase,
          .scenewardBase = settings.deployment.scenewardBase,
          .currentUserID = account.currentUser(),
          .bearer = account.bearer(),
          .network = account.network,
          .journal = std::move(journal),
          .sheetExchange = std::move(sheetExchange),
          .preferences = [&preferences] { return preferences.snapshot(); },
          .storeNotifications = std::move(storeNotifications),
          .notifications = account.notifications,
          .hydrator = nullptr,
          .main = std::move(main),
          .concurrent = std::move(concurrent),
          .log = shellLog};
}

}  // namespace

AppDelegate::AppDelegate(Settings settings, Runtime& runtime, MainLoop& main)
    : settings_(std::move(settings)),
      runtime_(runtime),
      main_(main),
      account_(settings_.paths, settings_.deployment, runtime.io(), runtime.concurrent()),
      ledgerlyNetwork_(networkTo(settings_.deployment.ledgerlyBase, "ledgerlyBase", account_.network)),
      scenewardNetwork_(networkTo(settings_.deployment.scenewardBase, "scenewardBase", account_.network)),
      preferences_(*account_.standardDefaults, shellLog),
      storeNotifications_(std::make_shared<StoreNotifications>(account_.signals, main.executor())),
      journal_(std::make_shared<SyncJournal>()),
      sheetExchange_(std::make_shared<AsyncMutex>()),
      recents_(recentsSettings(settings_, account_, preferences_, storeNotifications_, journal_,
                               sheetExchange_, main.executor(), runtime.concurrent())) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
  openStore();
  if (store_) {
    spawn(main_.executor(), "service start", [this]() -> Task<> {
      // A task of its own: what follows here does not wait for it.
      co_await boost::asio::post(boost::asio::use_awaitable);
      startServices();
    });
    startScenewardPusher();
    startLedgerlyPusher();
  }
  startRecents();
  applicationOpen(settings_.urls);
}

void AppDelegate::openStore() {
  try {
    store_ = AgentStore::open(settings_.paths, appGroupIdentifier);
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
      .runner = ledgerlyNetwork_,
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

void AppDelegate::startScenewardPusher() {
  const auto pusher = std::make_shared<ScenewardPusher>(
      ScenewardCheckpointQueue(store_),
      ScenewardPushClient{
          .base = settings_.deployment.scenewardBase.value_or(""),
          .bearer = account_.bearer(),
          .send = scenewardNetwork_,
          .identify = [device = account_.device](URLRequest& request) { device->apply(request); }},
      account_.currentUser(), account_.notifications, journal_, shellLog);
  if (scenewardPushTriggers_) scenewardPushTriggers_->stop();
  scenewardPushTriggers_ = std::make_unique<ScenewardPushTriggers>(ScenewardPushTriggers::Settings{
      .runOnce = [pusher] { return pusher->runOnce(); },
      .monitor = makeNetworkPathMonitor(runtime_.io(), settings_.deployment.assumeOnline),
      .notifications = account_.notifications,
      .signals = account_.signals,
      .executor = runtime_.concurrent(),
      .log = shellLog});
  scenewardPushTriggers_->start();
}

void AppDelegate::startLedgerlyPusher() {
  const auto pusher = std::make_shared<LedgerlyPusher>(
      LedgerlyQueries(store_, storeNotifications_),
      LedgerlyPushClient{.base = settings_.deployment.ledgerlyBase.value_or(""),
                         .bearer = account_.bearer(),
                         .send = ledgerlyNetwork_},
      account_.currentUser(), shellLog, journal_, sheetExchange_);
  ledgerlyPushTask_.reset();  // which cancels it
  ledgerlyPushTask_ = std::make_unique<TaskGroup>();
  ledgerlyPushTask_->spawn(runtime_.concurrent(), "sheet pushing",
                           [pusher] { return pusher->runForever(sheetPushInterval); });
}

void AppDelegate::startRecents() {
  spawn(main_.executor(), "recents start", [this]() -> Task<> {
    co_await boost::asio::post(boost::asio::use_awaitable);
    recents_.startPolling();
    co_await recents_.viewModel()->reload();
  });
}

MCPLifecycle::Environment AppDelegate::lifecycleEnvironment() const {
  return {
      .bearerStore = account_.bearerStore,
      .gate = account_.gate,
      .currentUser = account_.currentUser(),
      .log = shellLog,
      .accountGeneration = [epoch = account_.epoch] { return static_cast<std::uint64_t>(epoch->value()); },
      .bearer = account_.bearer(),
      .runner = ledgerlyNetwork_,
      .adminEndpoint = ledgerlyEndpoint(settings_.deployment, "/api/ecosystem/admin-access/me"),
      .registerModules = moduleMaker(),
      .socketPath =
          settings_.paths.container ? std::optional(settings_.paths.assistantsSocket()) : std::nullopt,
      .port = settings_.port,
      .io = runtime_.io(),
      .concurrent = runtime_.concurrent(),
      .poller = &runtime_.poller(),
  };
}

/// Without the web API's address there is no client, and none of the tools that need it.
std::optional<LedgerlyWebClient> AppDelegate::ledgerlyWebClient() const {
  if (!settings_.deployment.ledgerlyBase) return std::nullopt;
  return LedgerlyWebClient{.base = *settings_.deployment.ledgerlyBase,
                           .bearer = account_.bearer(),
                           .send = ledgerlyNetwork_,
                           .currentUser = account_.currentUser()};
}

std::function<void(const std::shared_ptr<ToolRegistry>&)> AppDelegate::moduleMaker() const {
  return [store = store_, notifications = storeNotifications_, profile = account_.profile(),
          web = ledgerlyWebClient(),
          concurrent = runtime_.concurrent()](const std::shared_ptr<ToolRegistry>& registry) {
    registry->registerModule(
        std::make_shared<ScenewardToolModule>(ScenewardQueries(store, notifications), registry));
    std::optional<LedgerlyAttachmentClient> attachments;
    std::optional<LedgerlyAIListClient> archive;
    if (web) {
      attachments.emplace(*web);
      archive.emplace(*web, shellLog);
    }
    registry->registerModule(std::make_shared<LedgerlyToolModule>(
        LedgerlyQueries(store, notifications), std::move(attachments), std::move(archive), concurrent));
    registry->registerModule(
        std::make_shared<VorlaneToolModule>(RecentsQueries(store, notifications), profile));
  };
}

void AppDelegate::applicationOpen(const std::vector<std::string>& urls) {
  for (const auto& url : urls) shellLog(ignoredURLLine(url));
}

JSONMap AppDelegate::status() const {
  auto status = accountStatus(settings_.paths, account_, store_, journal_.get());
  status["running"] = true;
  status["serving"] = lifecycle_.isServing();
  if (const auto port = lifecycle_.httpPort())
    status["endpoint"] = fmt::format("http://127.0.0.1:{}/rpc", *port);
  if (const auto socket = lifecycle_.socketPath()) status["socket"] = *socket;
  return status;
}

}  // namespace vorlane
