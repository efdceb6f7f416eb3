#include "platform/linux/BoundedVault.h"

#include "base/tasks/BlockingThread.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace vorlane {
namespace {

/// One call, shared by its caller and the thread that makes it.
struct Call {
  std::condition_variable ended;
  std::optional<SecretVault::Read> result;
  bool abandoned = false;
};

/// Takes back a flag, under the lock that the caller holds at its end.
struct ProbeEnd {
  bool* flag;
  ~ProbeEnd() {
    if (flag != nullptr) *flag = false;
  }
};

}  // namespace

struct BoundedVault::State {
  State(std::unique_ptr<InterruptibleVault> vault, Limits given, Log say, SteadyClock time)
      : slow(std::move(vault)), limits(given), log(std::move(say)), clock(std::move(time)) {}

  const std::unique_ptr<InterruptibleVault> slow;
  const Limits limits;
  const Log log;
  const SteadyClock clock;

  std::mutex lock;  // guards what follows and the fields of every Call
  std::chrono::steady_clock::time_point closedUntil{};
  std::chrono::milliseconds backOff{0};
  bool answered = true;  // the last call did
  bool probing = false;  // one call is finding out whether the keyring is back
  const Call* running = nullptr;
  std::condition_variable freed;

  // Last, so that its thread has ended before anything that it uses goes.
  BlockingThread thread{"vorlane.keyring"};

  bool closed() const { return clock() < closedUntil; }

  void note(vault::Status status) {
    answered = status == vault::success || status == vault::itemNotFound || status == vault::duplicateItem;
    if (answered) backOff = std::chrono::milliseconds(0);
  }

  /// On the thread of the calls.
  void perform(const std::shared_ptr<Call>& call, const std::function<Read(InterruptibleVault&)>& work) {
    {
      const std::scoped_lock hold(lock);
      // A call that was given up must not take effect later.
      if (call->abandoned) return;
      running = call.get();
      slow->reset();
    }
    auto result = work(*slow);
    const std::scoped_lock hold(lock);
    running = nullptr;
    freed.notify_all();
    if (!call->abandoned) note(result.status);
    call->result = std::move(result);
    call->ended.notify_all();
  }

  /// With the lock held: the call has run out of time.
  void giveUp(Call& call) {
    call.abandoned = true;
    answered = false;
    if (running == &call) slow->interrupt();
    if (closed()) return;  // another waiter of the same moment has said so
    backOff = backOff.count() == 0 ? limits.firstBackOff : std::min(backOff * 2, limits.longestBackOff);
    closedUntil = clock() + backOff;
    log("the keyring does not answer; it is left alone for a while");
  }
};

BoundedVault::BoundedVault(std::unique_ptr<InterruptibleVault> slow, Limits limits, Log log,
                           SteadyClock clock)
    : state_(std::make_unique<State>(std::move(slow), limits, std::move(log), std::move(clock))) {}

BoundedVault::~BoundedVault() {
  const std::scoped_lock hold(state_->lock);
  if (state_->running != nullptr) state_->slow->interrupt();
}

SecretVault::Read BoundedVault::call(std::function<Read(InterruptibleVault&)> work) {
  const Read unavailable{.status = vault::notAvailable, .bytes = {}};
  auto& state = *state_;
  std::unique_lock hold(state.lock);
  if (state.closed()) return unavailable;
  // After a time-out one caller finds out, and the others do not wait with it.
  const bool probe = state.backOff.count() > 0;
  if (probe && std::exchange(state.probing, true)) return unavailable;
  const ProbeEnd ended{probe ? &state.probing : nullptr};
  const auto call = std::make_shared<Call>();
  const auto giveUp = std::chrono::steady_clock::now() + state.limits.patience;
  // Nothing queues behind an interrupted call that has not ended yet.
  const auto free = [&] { return state.running == nullptr || !state.running->abandoned; };
  if (!state.freed.wait_until(hold, giveUp, free)) {
    state.giveUp(*call);
    return unavailable;
  }
  // The state outlives its thread, which its destructor joins.
  try {
    state.thread.post([&state, call, work = std::move(work)] { state.perform(call, work); });
  } catch (const std::exception&) {
    return unavailable;  // the system has no thread to give
  }
  call->ended.wait_until(hold, giveUp, [&] { return call->result.has_value(); });
  if (call->result) return std::move(*call->result);
  state.giveUp(*call);
  return unavailable;
}

SecretVault::Read BoundedVault::read(const SecretItem& item) {
  return call([item](InterruptibleVault& slow) { return slow.read(item); });
}

vault::Status BoundedVault::update(const SecretItem& item, const std::string& bytes) {
  return call([=](InterruptibleVault& slow) { return Read{slow.update(item, bytes), {}}; }).status;
}

vault::Status BoundedVault::add(const SecretItem& item, const std::string& bytes) {
  return call([=](InterruptibleVault& slow) { return Read{slow.add(item, bytes), {}}; }).status;
}

vault::Status BoundedVault::remove(const SecretItem& item) {
  return call([item](InterruptibleVault& slow) { return Read{slow.remove(item), {}}; }).status;
}

std::optional<std::string> BoundedVault::stamp(const SecretItem& item) {
  {
    const std::scoped_lock hold(state_->lock);
    if (!state_->answered || state_->closed()) return std::nullopt;
  }
  return state_->slow->stamp(item);
}

bool BoundedVault::usable() {
  return call([](InterruptibleVault& slow) {
           return Read{slow.usable() ? vault::success : vault::itemNotFound, {}};
         }).status != vault::itemNotFound;
}

}  // namespace vorlane
