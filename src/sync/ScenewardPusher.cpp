#include "sync/ScenewardPusher.h"

#include "auth/AccountMark.h"
#include "auth/AuthNotifications.h"
#include "base/Failure.h"
#include "base/tasks/Event.h"

#include <boost/asio/this_coro.hpp>

#include <algorithm>
#include <atomic>
#include <exception>
#include <set>
#include <utility>

namespace vorlane {
namespace {

using Request = ScenewardCheckpointRequest;

/// The statuses by which the cloud says that it will never take this operation.
constexpr int blocking[] = {400, 404, 409, 410, 413, 422};
/// Of them, the one that says that the account itself is gone.
constexpr int accountGone = 410;

constexpr char stillPending[] = "Cloud Save pending";

/// The status when the failure is an answer that blocks the operation.
std::optional<int> blockingStatus(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const ScenewardPushClient::HTTPFailure& refused) {
    if (std::ranges::find(blocking, refused.status()) != std::end(blocking)) return refused.status();
  } catch (...) {
  }
  return std::nullopt;
}

std::optional<std::string> userOf(const Account& account) {
  try {
    return account.currentUser();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

/// Ends as `work` does, but for its failure, which is dropped.
Task<> whateverComesOf(Task<> work) {
  try {
    co_await std::move(work);
  } catch (const std::exception&) {
  }
}

}  // namespace

struct ScenewardPusher::State {
  std::atomic<bool> running = false;
  std::atomic<std::int64_t> epoch = 0;
};

/// One pass for one owner; used by the one coroutine that made it.
class ScenewardPusher::Pass {
 public:
  Pass(ScenewardPusher& pusher, AccountMark mark) : pusher_(pusher), mark_(std::move(mark)) {}
  ~Pass() { pusher_.state_->running = false; }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;

  /// Deals with the next save; false when the pass is over.
  Task<bool> turn() {
    if (!mark_.holds()) co_return false;
    auto request = co_await next();
    if (!request) co_return false;
    // The payload goes with the upload; what follows needs the ids and hashes alone.
    auto payload = std::move(request->payload);
    request->payload.clear();
    const Request operation = *request;
    request->payload = std::move(payload);
    attempted_.insert(operation.operationID);

    std::exception_ptr failure;
    try {
      co_return co_await push(std::move(*request), operation);
    } catch (...) {
      failure = std::current_exception();
    }
    // A pass that is told to end has nothing to say about the save.
    const auto cancellation = co_await boost::asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != boost::asio::cancellation_type::none) co_return false;
    co_return co_await settleFailure(operation, failure);
  }

  Outcomes takeOutcomes() { return std::move(outcomes_); }

 private:
  bool fence(const std::string& projectID) const {
    if (!mark_.holds()) return false;
    try {
      return !pusher_.queue_.isProjectCancelled(owner(), projectID);
    } catch (const std::exception&) {
      return false;
    }
  }

  Task<std::optional<Request>> next() {
    std::vector<Request> waiting;
    try {
      waiting = co_await pusher_.pending(owner(), verified_);
    } catch (const std::exception& error) {
      if (isCancellation(error)) throw;
      pusher_.journal_->failed(SyncJournal::Service::checkpoints, owner(), describe(error));
      pusher_.log_("Sceneward Save queue unavailable");
      co_return std::nullopt;
    }
    // A head that was blocked or that failed is not tried twice.
    for (auto& request : waiting) {
      if (!attempted_.contains(request.operationID)) co_return std::move(request);
    }
    co_return std::nullopt;
  }

  Task<bool> push(Request request, Request operation) {
    const auto receipt = co_await pusher_.client_.publish(
        std::move(request), [this, project = operation.projectID] { return fence(project); });
    if (!mark_.holds()) co_return false;
    const auto version = operation.validateReceipt(receipt);
    const auto id = operation.operationID;
    co_await pusher_.queue_.acknowledge(std::move(operation), receipt);
    outcomes_[id] = Pushed{version};
    pusher_.journal_->succeeded(SyncJournal::Service::checkpoints, owner());
    co_return true;
  }

  /// Blocks what the cloud will never take; after any other failure nothing behind it may go.
  Task<bool> settleFailure(Request operation, std::exception_ptr failure) {
    pusher_.journal_->failed(SyncJournal::Service::checkpoints, owner(), describe(failure));
    auto& outcome = outcomes_[operation.operationID];
    const auto status = blockingStatus(failure);
    if (!status) {
      outcome = Failed{stillPending};
      pusher_.log_("Sceneward explicit Cloud Save remains pending");
      co_return false;
    }
    outcome = Blocked{};
    // The cloud has spoken, and is heard also when the pass is being cancelled.
    co_await boost::asio::this_coro::throw_if_cancelled(false);
    co_await whateverComesOf(pusher_.queue_.block(std::move(operation)));
    if (*status != accountGone) co_return true;
    co_await whateverComesOf(pusher_.queue_.erase(owner()));
    co_return false;
  }

  const std::string& owner() const { return *mark_.owner(); }

  ScenewardPusher& pusher_;
  const AccountMark mark_;
  std::set<std::string> attempted_;
  /// Each save is read through once in a pass, however many there are.
  const std::shared_ptr<Verified> verified_ = std::make_shared<Verified>();
  Outcomes outcomes_;
};

ScenewardPusher::ScenewardPusher(ScenewardCheckpointQueue queue, ScenewardPushClient client,
                                 NotificationCenter& notifications, std::shared_ptr<SyncJournal> journal,
                                 Log log)
    : queue_(std::move(queue)),
      client_(std::move(client)),
      journal_(std::move(journal)),
      log_(std::move(log)),
      state_(std::make_shared<State>()),
      account_(std::make_shared<const Account>(
          Account{.currentUser = [account = client_.api.account] { return userOf(*account); },
                  .epoch = [state = state_] { return state->epoch.load(); }})),
      observer_(notifications.observe(auth::changed, [state = std::weak_ptr(state_)] {
        if (const auto alive = state.lock()) ++alive->epoch;
      })) {}

Task<ScenewardPusher::Outcomes> ScenewardPusher::runOnce() {
  return pass(shared_from_this());
}

Task<ScenewardPusher::Outcomes> ScenewardPusher::pass(std::shared_ptr<ScenewardPusher> self) {
  auto owner = self->account_->currentUser();
  if (!owner || self->state_->running.exchange(true)) co_return Outcomes();
  // From here on the destructor of this takes the flag back, whatever happens.
  Pass pass(*self, AccountMark(self->account_, std::move(owner)));
  try {
    while (co_await pass.turn()) {
    }
  } catch (const std::exception& error) {
    if (!isCancellation(error)) throw;
  }
  co_return pass.takeOutcomes();
}

Task<std::vector<Request>> ScenewardPusher::pending(std::string owner, std::shared_ptr<Verified> verified) {
  struct Reading {
    Event ended;
    std::vector<Request> requests;
    std::exception_ptr failure;
  };
  // Shared with the thread, whose work goes on when nobody waits for it any more.
  const auto reading = std::make_shared<Reading>();
  reader_.post([reading, queue = queue_, owner = std::move(owner), verified = std::move(verified)] {
    try {
      reading->requests = queue.pending(owner, *verified);
    } catch (...) {
      reading->failure = std::current_exception();
    }
    reading->ended.set();
  });
  co_await reading->ended.wait();
  if (reading->failure) std::rethrow_exception(reading->failure);
  co_return std::move(reading->requests);
}

}  // namespace vorlane
