#include "sync/ScenewardPushTriggers.h"

#include "auth/AuthNotifications.h"
#include "base/Failure.h"
#include "base/tasks/TaskGroup.h"
#include "sync/PollBackoff.h"

#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <utility>
#include <variant>

namespace vorlane {

namespace asio = boost::asio;

namespace {

/// Failed passes in a row that may be followed by one at once, before the delay stands between.
constexpr int hurriedLimit = 4;

bool anyFailed(const ScenewardPusher::Outcomes& outcomes) {
  return std::ranges::any_of(outcomes, [](const auto& entry) {
    return std::holds_alternative<ScenewardPusher::Failed>(entry.second);
  });
}

std::chrono::milliseconds milliseconds(double seconds) {
  return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

}  // namespace

/// Tasks and observers hold this weakly. Fields are touched on the strand alone, but for those
/// that say otherwise.
struct ScenewardPushTriggers::State : std::enable_shared_from_this<State> {
  explicit State(Settings& settings)
      : runOnce(std::move(settings.runOnce)),
        executor(settings.executor),
        strand(asio::make_strand(settings.executor)),
        log(std::move(settings.log)),
        sleep(std::move(settings.sleep)) {}

  const std::function<Task<ScenewardPusher::Outcomes>()> runOnce;
  const Executor executor;
  const asio::strand<Executor> strand;
  const Log log;
  const Sleeper sleep;

  std::atomic<bool> stopped = false;  // any thread
  TaskGroup tasks;                    // any thread; the pass that runs

  bool online = false;
  bool inFlight = false;
  bool again = false;
  /// Failed passes in a row that were followed by one at once.
  int hurried = 0;
  PollBackoff backoff;
  /// The retry that waits, if any; it is cancelled with its group.
  std::unique_ptr<TaskGroup> retry;
  std::uint64_t retryNumber = 0;

  void trigger() {
    asio::post(strand, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->fire();
    });
  }

  void fire() {
    if (stopped) return;
    cancelRetry();
    if (!online) return;
    if (inFlight) {
      again = true;
      return;
    }
    inFlight = true;
    again = false;
    tasks.spawn(executor, "sceneward push",
                [weak = weak_from_this(), run = runOnce, state = strand, report = log]() -> Task<> {
                  bool failed = true;
                  try {
                    failed = anyFailed(co_await run());
                  } catch (const std::exception& error) {
                    if (!isCancellation(error)) report("sceneward push failed: " + describe(error));
                  }
                  asio::post(state, [weak, failed] {
                    if (const auto self = weak.lock()) self->settle(failed);
                  });
                });
  }

  void settle(bool failed) {
    inFlight = false;
    hurried = failed && again ? hurried + 1 : 0;
    // A pass whose own token has to be refreshed asks for the next one by that. Where every
    // token does, passes would follow one another as fast as the identity provider answers.
    if (again && hurried <= hurriedLimit) {
      fire();
    } else if (!failed || !online) {
      backoff.reset();
    } else if (!stopped) {
      scheduleRetry();
      backoff.backOff();
    }
  }

  void scheduleRetry() {
    again = false;
    hurried = 0;
    retry = std::make_unique<TaskGroup>();
    retry->spawn(executor, "sceneward push retry",
                 [weak = weak_from_this(), wait = sleep, delay = milliseconds(backoff.current),
                  state = strand, number = ++retryNumber]() -> Task<> {
                   co_await wait(delay);
                   asio::post(state, [weak, number] {
                     const auto self = weak.lock();
                     // One that was cancelled as it became due is no longer wanted.
                     if (self && self->retry && self->retryNumber == number) self->fire();
                   });
                 });
  }

  void cancelRetry() { retry.reset(); }

  void pathChanged(bool satisfied) {
    if (stopped) return;
    const bool returned = satisfied && !online;
    online = satisfied;
    if (returned) {
      backoff.reset();
      fire();
    } else if (!online) {
      cancelRetry();
    }
  }
};

ScenewardPushTriggers::ScenewardPushTriggers(Settings settings)
    : state_(std::make_shared<State>(settings)),
      monitor_(std::move(settings.monitor)),
      notifications_(std::move(settings.notifications)),
      signals_(std::move(settings.signals)) {}

ScenewardPushTriggers::~ScenewardPushTriggers() {
  stop();
}

void ScenewardPushTriggers::start() {
  const auto ask = [weak = std::weak_ptr(state_)] {
    if (const auto state = weak.lock()) state->trigger();
  };
  observer_ = notifications_.observe(auth::changed, ask);
  pending_ = signals_->observe(std::string(ScenewardPushClient::pendingNotice), ask);
  const auto pathChanged = [weak = std::weak_ptr(state_)](bool satisfied) {
    if (const auto state = weak.lock()) state->pathChanged(satisfied);
  };
  try {
    monitor_->start(state_->strand, pathChanged);
  } catch (const std::exception& error) {
    state_->log("the network path is not watched: " + describe(error));
    asio::post(state_->strand, [pathChanged] { pathChanged(true); });
  }
}

void ScenewardPushTriggers::stop() {
  if (state_->stopped.exchange(true)) return;
  monitor_->cancel();
  observer_.cancel();
  pending_.cancel();
  state_->tasks.cancel();
  asio::post(state_->strand, [state = state_] { state->cancelRetry(); });
}

Task<> ScenewardPushTriggers::join() {
  const auto state = state_;
  co_await state->tasks.join();
}

void ScenewardPushTriggers::trigger() {
  state_->trigger();
}

}  // namespace vorlane
