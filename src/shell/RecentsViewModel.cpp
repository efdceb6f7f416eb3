#include "shell/RecentsViewModel.h"

#include "auth/AuthNotifications.h"
#include "base/Failure.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"

#include <boost/asio/post.hpp>

#include <cstdint>
#include <exception>
#include <limits>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

constexpr char itemsChanged[] = "items";

std::optional<VorlaneApp> appNamed(std::string_view name) {
  if (name == "ledgerly") return VorlaneApp::ledgerly;
  if (name == "sceneward") return VorlaneApp::sceneward;
  return std::nullopt;
}

}  // namespace

RecentsViewModel::RecentsViewModel(Settings settings) : settings_(std::move(settings)) {}

void RecentsViewModel::subscribe() {
  if (!settings_.hydrator) return;
  auto center = settings_.notifications;
  authObserver_ = center.observe(
      auth::changed, [main = settings_.main, handler = reloadOnMain()] { boost::asio::post(main, handler); });
}

Task<> RecentsViewModel::reload() {
  const auto self = shared_from_this();
  if (!settings_.hydrator) co_return;
  const auto ended = co_await onExecutor(
      settings_.main, [self]() -> Task<std::shared_ptr<Event>> { co_return self->requestReload(); });
  co_await ended->wait();
}

void RecentsViewModel::setAppFilter(std::optional<VorlaneApp> filter) {
  appFilter_ = filter;
  if (settings_.hydrator) requestReload();
}

Observation RecentsViewModel::observe(std::function<void()> handler) {
  return shown_.observe(itemsChanged, std::move(handler));
}

std::shared_ptr<Event> RecentsViewModel::requestReload() {
  if (!wanted_) wanted_ = std::make_shared<Event>();
  auto ended = wanted_;
  if (!std::exchange(reloading_, true)) {
    spawn(settings_.main, "recents reload",
          [self = shared_from_this()] { return self->reloadWhileWanted(); });
  }
  return ended;
}

/// For an observer, which must not keep the list alive.
std::function<void()> RecentsViewModel::reloadOnMain() {
  return [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->requestReload();
  };
}

Task<> RecentsViewModel::reloadWhileWanted() {
  while (wanted_) {
    const auto ended = std::exchange(wanted_, nullptr);
    std::exception_ptr failure;
    try {
      co_await reloadOnce();
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) settings_.log("RecentsViewModel.reload failed: " + describe(failure));
    ended->set();
  }
  reloading_ = false;
}

Task<> RecentsViewModel::reloadOnce() {
  // Who is signed in is asked of the vault, which may take its time.
  const auto user = co_await onExecutor(settings_.worker, [this]() -> Task<std::optional<std::string>> {
    co_return settings_.userIDProvider();
  });
  adopt(user);
  if (!user) co_return;
  auto items = co_await onExecutor(
      settings_.worker, [this, user, filter = appFilter_]() -> Task<std::optional<std::vector<RecentItem>>> {
        auto found = read(*user, filter);
        // Nothing is shown of an account that has signed out meanwhile; that change causes its own reload.
        if (settings_.userIDProvider() != user) co_return std::nullopt;
        co_return std::move(found);
      });
  if (items) show(std::move(*items));
}

/// Nobody is shown what another account opened, not even until its own list has been
/// read. Observed before that reading, so that no change falls between the two.
void RecentsViewModel::adopt(std::optional<std::string> user) {
  if (user == currentUserID_) return;
  storeObserver_.reset();
  currentUserID_ = std::move(user);
  if (currentUserID_) {
    storeObserver_.emplace(
        settings_.storeNotifications->observe(StoreScope::recents(*currentUserID_), reloadOnMain()));
  }
  show({});
}

void RecentsViewModel::show(std::vector<RecentItem> items) {
  items_ = std::move(items);
  shown_.post(itemsChanged);
}

/// An entry's document is looked at only when the entry may be shown: the row names its
/// application, and the list is full after the first few.
std::vector<RecentItem> RecentsViewModel::read(const std::string& user,
                                               std::optional<VorlaneApp> filter) const {
  const auto preferences = settings_.preferences();
  const auto included = [&](VorlaneApp app) {
    if (filter && app != *filter) return false;
    return app == VorlaneApp::ledgerly ? preferences.includeLedgerlyInRecents
                                       : preferences.includeScenewardInRecents;
  };
  std::vector<RecentItem> items;
  const auto full = [&] { return std::cmp_greater_equal(items.size(), preferences.recentsCount); };
  const auto hydrate = settings_.hydrator();
  for (const auto& row : settings_.recents.recent(user, std::numeric_limits<std::int64_t>::max())) {
    if (full()) break;
    const auto app = appNamed(row.app);
    if (!app || !included(*app)) continue;
    if (auto item = hydrate(row)) items.push_back(std::move(*item));
  }
  return items;
}

}  // namespace vorlane
