#include "shell/AppRecentsHolder.h"

#include "base/Failure.h"
#include "shell/TemporaryDirectory.h"
#include "store/AgentStore.h"

#include <chrono>
#include <utility>

namespace vorlane {
namespace {

constexpr std::chrono::seconds pollInterval{1800};

}  // namespace

AppRecentsHolder::AppRecentsHolder(Settings settings) : settings_(std::move(settings)) {
  try {
    store_ = AgentStore::open(settings_.paths, appGroupIdentifier);
  } catch (const std::exception& error) {
    settings_.log("recents are kept until the agent ends, since their store cannot be opened: " +
                  describe(error));
  }
  auto opened = store_;
  if (!opened) {
    folder_ = std::make_unique<TemporaryDirectory>();
    opened = std::make_shared<AgentStore>(folder_->path());
  }
  const RecentsQueries recents(opened, settings_.storeNotifications);
  const LedgerlyQueries sheets(opened, settings_.storeNotifications);
  const ScenewardQueries projects(opened, settings_.storeNotifications);

  std::function<RecentsViewModel::Hydrator()> hydrator;
  if (settings_.hydrator) {
    hydrator = [make = settings_.hydrator, sheets, projects] { return make(sheets, projects); };
  }
  viewModel_ = std::make_shared<RecentsViewModel>(
      RecentsViewModel::Settings{.recents = recents,
                                 .hydrator = std::move(hydrator),
                                 .userIDProvider = settings_.ledgerly.account->currentUser,
                                 .preferences = settings_.preferences,
                                 .storeNotifications = settings_.storeNotifications,
                                 .notifications = settings_.notifications,
                                 .main = settings_.main,
                                 .worker = settings_.concurrent,
                                 .log = settings_.log});
  if (store_) {
    fetcher_ = std::make_shared<RecentsSyncFetcher>(
        RecentsSyncFetcher::Settings{.recents = recents,
                                     .ledgerlyStore = sheets,
                                     .scenewardStore = projects,
                                     .ledgerly = settings_.ledgerly,
                                     .sceneward = settings_.sceneward,
                                     .log = settings_.log,
                                     .journal = settings_.journal,
                                     .exchange = settings_.sheetExchange});
  }
  viewModel_->subscribe();
}

AppRecentsHolder::~AppRecentsHolder() = default;

void AppRecentsHolder::startPolling() {
  fetchTask_.reset();  // which cancels it
  if (!fetcher_) return;
  fetchTask_ = std::make_unique<TaskGroup>();
  fetchTask_->spawn(settings_.concurrent, "recents polling",
                    [fetcher = fetcher_] { return fetcher->runForever(pollInterval); });
}

}  // namespace vorlane
