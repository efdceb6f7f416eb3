#include "access/ProfileSyncer.h"

#include "auth/AccountMark.h"
#include "base/Failure.h"
#include "base/JSONArguments.h"
#include "base/tasks/Event.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/TaskGroup.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

constexpr std::chrono::seconds pollFloor{300};
constexpr std::chrono::seconds pollCeiling{3600};
constexpr auto accountChange = "com.vorlane.auth.owner-epoch";

using Run = std::shared_ptr<const ProfileSyncer::Settings>;

/// What one sync found, and why it is a denial where that is worth a line.
struct Finding {
  bool access = false;
  std::string_view denial;
};

/// Reads an optional boolean: absent and null are `missing`; any other type gives nothing.
std::optional<bool> flag(const JSONMap& map, std::string_view key, bool missing) {
  const auto* value = json::find(map, key);
  if (value == nullptr || value->is_null()) return missing;
  if (!value->is_bool()) return std::nullopt;
  return value->get_bool();
}

/// Whether the profile grants access; nothing when the body is no profile.
std::optional<bool> accessIn(std::string_view body) {
  try {
    const auto envelope = parseJSONMap(body);
    const auto success = flag(envelope, "success", true);
    const auto* profile = json::object(envelope, "profile");
    if (!success || profile == nullptr) return std::nullopt;
    const auto access = flag(*profile, "mcpAccess", false);
    if (!access) return std::nullopt;
    return *access && *success;
  } catch (const JSONParseFailure&) {
    return std::nullopt;
  }
}

/// What `work` gives; nothing when it fails. A cancellation is no failure of it.
template <class Work>
auto unlessFailed(Work work) -> Task<std::optional<typename decltype(work())::value_type>> {
  try {
    co_return co_await work();
  } catch (const std::exception& error) {
    if (isCancellation(error)) throw;
    co_return std::nullopt;
  }
}

Task<Finding> fetch(Run run, std::optional<std::string> user) {
  if (!user) co_return Finding{};
  const auto token = (co_await unlessFailed(run->api.bearer)).value_or(std::nullopt);
  if (!token || token->empty()) co_return Finding{};
  auto request = run->api.request("GET", run->path);
  cloud::setBearer(request, token);
  request.timeout = std::chrono::seconds(15);
  const auto response = co_await unlessFailed([&] { return run->api.send(std::move(request)); });
  if (!response) co_return Finding{.denial = "network unavailable"};
  if (response->status < 200 || response->status > 299) co_return Finding{.denial = "response unavailable"};
  const auto access = accessIn(response->body);
  if (!access) co_return Finding{.denial = "invalid response"};
  co_return Finding{.access = *access};
}

/// The signed-in user; nobody when that cannot be told.
std::optional<std::string> userOf(const ProfileSyncer::Settings& run) {
  try {
    return run.api.account->currentUser();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// Writes the gate. Failing to is logged: the caller has nothing better to try.
void write(const ProfileSyncer::Settings& run, bool access, const std::optional<std::string>& owner) {
  try {
    run.gate->set(access, owner);
  } catch (const std::exception& error) {
    run.log("mcp: access gate not written: " + describe(error));
  }
}

}  // namespace

struct ProfileSyncer::State : std::enable_shared_from_this<ProfileSyncer::State> {
  /// A run of the refresh action, asked for by one start of the syncer.
  struct Refresh {
    Run run;
    std::shared_ptr<Event> ended = std::make_shared<Event>();
  };

  /// The queue that guards what follows and the order of writes to the gate. No
  /// callable of the settings is called under it but the gate, the log and the clock.
  std::mutex lock;
  /// What the syncer was last started with; null while it is stopped.
  Run current;
  /// Moves with each account change, start and stop, under the lock; work that began before is stale.
  std::atomic<std::int64_t> epoch = 0;
  std::shared_ptr<TaskGroup> tasks;
  Observation observation;
  std::optional<Refresh> running;
  std::optional<Refresh> waiting;

  void replace(Run next, std::shared_ptr<TaskGroup> nextTasks) {
    Observation ended;
    std::shared_ptr<TaskGroup> cut;
    Run replaced;
    {
      const std::scoped_lock hold(lock);
      ++epoch;
      replaced = std::exchange(current, std::move(next));
      cut = std::exchange(tasks, std::move(nextTasks));
      ended = std::move(observation);
    }
    // The observation ends, and with it handlers may, outside the lock.
    ended.cancel();
    if (cut) cut->cancel();
  }

  /// On the poster's thread: when this returns the gate is closed.
  void accountChanged(const Run& run) {
    bool wasOn = false;
    std::optional<AccountMark> mark;
    std::shared_ptr<TaskGroup> group;
    {
      const std::scoped_lock hold(lock);
      if (current != run) return;
      ++epoch;
      mark.emplace(accountOf(run), std::nullopt);
      wasOn = run->gate->isOn();
      write(*run, false, std::nullopt);
      group = tasks;
    }
    if (wasOn) askForRefresh(run);
    group->spawn(run->executor, "mcp profile sync",
                 [self = shared_from_this(), run, mark = *mark]() -> Task<> {
                   // Never on the poster's own stack, whose locks we do not know.
                   co_await boost::asio::post(boost::asio::use_awaitable);
                   if (mark.isSameEpoch()) co_await self->sync(run);
                 });
  }

  /// The account as a run sees it: its epoch also ends what began in an earlier run.
  std::shared_ptr<const Account> accountOf(const Run& run) {
    return std::make_shared<const Account>(
        Account{.currentUser = [run] { return userOf(*run); },
                .epoch = [self = shared_from_this()] { return self->epoch.load(); }});
  }

  Task<> sync(Run run) {
    const AccountMark mark(accountOf(run));
    const auto finding = co_await fetch(run, mark.owner());
    // Asked before the lock is taken, since it may post. An account that changes
    // in between moves the epoch, or finds the gate written and closes it.
    const bool sameUser = mark.holds();
    bool changed = false;
    {
      const std::scoped_lock hold(lock);
      if (!sameUser || !mark.isSameEpoch()) co_return;
      if (!finding.denial.empty()) run->log(fmt::format("mcp: profile sync denied — {}", finding.denial));
      const bool before = run->gate->isOn();
      write(*run, finding.access, mark.owner());
      // What the gate says now, which a full disk may have kept closed.
      const bool after = run->gate->isOn();
      changed = after != before;
      run->log(fmt::format("mcp: profile sync — mcpAccess={}", after));
    }
    if (changed) co_await askForRefresh(run)->wait();
  }

  Task<> poll(Run run) {
    co_await sync(run);
    std::chrono::milliseconds interval = pollFloor;
    for (;;) {
      co_await run->sleep(interval);
      const bool before = run->gate->isOn();
      co_await sync(run);
      const bool changed = run->gate->isOn() != before;
      interval = changed ? std::chrono::milliseconds(pollFloor)
                         : std::min<std::chrono::milliseconds>(interval * 2, pollCeiling);
    }
  }

  /// Asks for a run of the refresh action that begins after this call; the event
  /// is set when it has ended, or will not begin since the syncer was stopped.
  std::shared_ptr<Event> askForRefresh(const Run& run) {
    std::shared_ptr<Event> ended;
    {
      const std::scoped_lock hold(lock);
      if (running) {
        if (!waiting) waiting = Refresh{run};
        waiting->run = run;
        return waiting->ended;
      }
      running.emplace(Refresh{run});
      ended = running->ended;
    }
    spawn(run->executor, "mcp profile refresh", [self = shared_from_this()] { return self->refreshAll(); });
    return ended;
  }

  /// One after the other, and outside the lock: the action may post, stop and start.
  Task<> refreshAll() {
    co_await boost::asio::post(boost::asio::use_awaitable);
    for (;;) {
      Run run;
      std::shared_ptr<Event> ended;
      bool more = false;
      {
        const std::scoped_lock hold(lock);
        if (running->run == current) run = current;
        ended = running->ended;
      }
      if (run && run->refreshAction) {
        try {
          co_await run->refreshAction();
        } catch (const std::exception& error) {
          run->log("mcp: refresh failed: " + describe(error));
        }
      }
      {
        const std::scoped_lock hold(lock);
        running = std::exchange(waiting, std::nullopt);
        more = running.has_value();
      }
      ended->set();
      if (!more) co_return;
    }
  }
};

ProfileSyncer::ProfileSyncer() : state_(std::make_shared<State>()) {}

ProfileSyncer::~ProfileSyncer() {
  stop();
}

void ProfileSyncer::start(Settings settings) {
  const auto run = std::make_shared<const Settings>(std::move(settings));
  const auto group = std::make_shared<TaskGroup>();
  state_->replace(run, group);
  auto observation =
      run->notifications->observe(accountChange, [state = std::weak_ptr(state_), run = std::weak_ptr(run)] {
        const auto alive = state.lock();
        const auto started = run.lock();
        if (alive && started) alive->accountChanged(started);
      });
  {
    const std::scoped_lock hold(state_->lock);
    if (state_->current == run) std::swap(state_->observation, observation);
  }
  group->spawn(run->executor, "mcp profile polling", [state = state_, run] { return state->poll(run); });
}

void ProfileSyncer::stop() {
  state_->replace(nullptr, nullptr);
}

}  // namespace vorlane
