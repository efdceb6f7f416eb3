#include "sync/LedgerlyPusher.h"

#include "base/Failure.h"
#include "base/JsonArguments.h"
#include "store/LedgerlySheetPayload.h"
#include "store/SnapshotCodec.h"

#include <fmt/format.h>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <ranges>
#include <utility>

namespace vorlane {
namespace {

namespace this_coro = boost::asio::this_coro;
using boost::asio::cancellation_type;

/// Writes down what a pass came to, sheet by sheet. A sheet that failed in it is told
/// until the pass after, also when others went through later.
class PassReport {
 public:
  PassReport(SyncJournal& journal, const std::string& owner) : journal_(journal), owner_(owner) {}

  void note(const LedgerlyPusher::Outcome& outcome) {
    if (const auto* failed = std::get_if<LedgerlyPusher::Failed>(&outcome)) {
      failure_ = failed->error;
    } else if (std::holds_alternative<LedgerlyPusher::Created>(outcome) ||
               std::holds_alternative<LedgerlyPusher::Updated>(outcome)) {
      journal_.succeeded(SyncJournal::Service::sheets, owner_);
    } else {
      return;
    }
    if (failure_) journal_.failed(SyncJournal::Service::sheets, owner_, *failure_);
  }

 private:
  SyncJournal& journal_;
  const std::string& owner_;
  std::optional<std::string> failure_;
};

}  // namespace

LedgerlyPusher::LedgerlyPusher(LedgerlyQueries queries, LedgerlyPushClient client, CurrentUser currentUserID,
                               Log log, std::shared_ptr<SyncJournal> journal, Sleeper sleep)
    : queries_(std::move(queries)),
      client_(std::move(client)),
      currentUserID_(std::move(currentUserID)),
      log_(std::move(log)),
      journal_(std::move(journal)),
      sleep_(std::move(sleep)) {}

Task<> LedgerlyPusher::runForever(std::chrono::seconds interval) {
  log_(fmt::format("LedgerlyPusher: push loop started (every {}s)", interval.count()));
  for (;;) {
    std::exception_ptr failure;
    try {
      co_await runOnce();
    } catch (...) {
      failure = std::current_exception();
    }
    if ((co_await this_coro::cancellation_state).cancelled() != cancellation_type::none) co_return;
    if (failure) log_("LedgerlyPusher: pass failed " + describe(failure));
    co_await sleep_(interval);
  }
}

Task<LedgerlyPusher::Outcomes> LedgerlyPusher::runOnce() {
  Outcomes outcomes;
  const auto owner = currentUserID_();
  if (!owner) {
    log_("LedgerlyPusher: signed out — skip");
    co_return outcomes;
  }
  Pending queue;
  try {
    queue = pending(*owner);
  } catch (const std::exception& error) {
    log_("LedgerlyPusher: queue read failed " + describe(error));
    journal_->failed(SyncJournal::Service::sheets, *owner, describe(error));
  }
  if (queue.count == 0) co_return outcomes;
  log_(fmt::format("LedgerlyPusher: {} sheet(s) pending", queue.count));

  const auto client = clientFor(*owner);
  PassReport report(*journal_, *owner);
  for (const auto& id : queue.ids) {
    const auto outcome = co_await attempt(id, *owner, client);
    if (!outcome) continue;
    report.note(*outcome);
    outcomes.emplace(id, *outcome);
    // What is left stays dirty, and waits until its owner is back.
    if (std::holds_alternative<Failed>(*outcome) && currentUserID_() != owner) break;
  }
  co_return outcomes;
}

/// The documents stay in the database until their turn comes: thousands of sheets may
/// be waiting for a cloud that is slow.
LedgerlyPusher::Pending LedgerlyPusher::pending(const std::string& owner) const {
  Pending queue{.count = queries_.pendingCount(owner)};
  if (queue.count == 0) return queue;
  for (auto& sheet : std::views::reverse(queries_.listMeta(owner))) queue.ids.push_back(std::move(sheet.id));
  return queue;
}

/// The client of a pass over one account's sheets. The token is fetched anew for each
/// of them, and by then somebody else may be signed in. Their token must not go out with
/// it: the cloud would file the sheet under them, or say of an update that there is no
/// such sheet, which would block it. Without any token there is nothing to mix up.
LedgerlyPusher::Client LedgerlyPusher::clientFor(const std::string& owner) const {
  auto client = std::make_shared<LedgerlyPushClient>(client_);
  client->bearer = [this, owner]() -> Task<std::optional<std::string>> {
    auto token = co_await client_.bearer();
    const auto user = currentUserID_();
    const bool nobodysRequest = !token && !user;
    if (user != owner && !nobodysRequest) throw Failure("the account changed before the upload");
    co_return token;
  };
  return client;
}

/// Pushes the row if it is still pending; nothing when it is not.
Task<std::optional<LedgerlyPusher::Outcome>> LedgerlyPusher::attempt(std::string id, std::string owner,
                                                                     Client client) const {
  std::optional<Outcome> outcome;
  std::exception_ptr failure;
  try {
    auto row = queries_.fetch(id);
    if (row && row->ownerID == owner && row->isDirty() && !row->isBlocked()) {
      outcome = co_await push(std::move(*row), std::move(client));
    }
  } catch (...) {
    failure = std::current_exception();
  }
  co_await this_coro::throw_if_cancelled(true);  // whatever the push left it at
  if (!failure) co_return outcome;
  if ((co_await this_coro::cancellation_state).cancelled() != cancellation_type::none) {
    throw CancelledFailure();
  }
  auto error = describe(failure);
  log_(fmt::format("LedgerlyPusher: {} failed — {}", id, error));
  co_return Failed{std::move(error)};
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::push(LedgerlySheetRow row, Client client) const {
  // Every mark says which edit the cloud was sent, not when: an edit that is made
  // meanwhile then leaves the row pending.
  const auto at = row.updatedAt;
  auto document = SnapshotCodec::decode(std::exchange(row.data, {}));
  if (json::arrayOfObjects(document, "categories") == nullptr) {
    log_(fmt::format("LedgerlyPusher: {} is a metadata stub, not a sheet — skipping", row.id));
    co_return SkippedNotASheet{};
  }
  auto sheet = LedgerlySheetPayload::cloudForm(std::move(document));
  if (row.remoteID) {
    co_return co_await update(row.id, *row.remoteID, row.title, std::move(sheet), at, std::move(client));
  }
  co_return co_await create(row.id, row.title, std::move(sheet), at, std::move(client));
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::create(std::string id, std::string title, JSONMap sheet,
                                                     Date at, Client client) const {
  const auto remoteID = co_await client->create(title, std::move(sheet));
  // The cloud has it, whoever is signed in by now, and also when this pass is being
  // cancelled: without the mark the next pass would make a second one.
  co_await this_coro::throw_if_cancelled(false);
  co_await queries_.markPushed(id, remoteID, at);
  log_(fmt::format("LedgerlyPusher: created {} \"{}\" → sheet {}", id, title, remoteID));
  co_return Created{remoteID};
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::update(std::string id, std::int64_t remoteID, std::string title,
                                                     JSONMap sheet, Date at, Client client) const {
  std::optional<std::string> gone;
  try {
    co_await client->update(remoteID, title, std::move(sheet));
  } catch (const LedgerlyPushClient::SheetGone& failure) {
    gone = failure.description();
  }
  co_await this_coro::throw_if_cancelled(false);  // the answer is there and is noted, as with a new sheet
  if (gone) {
    co_await queries_.markPushBlocked(id, at);
    log_(fmt::format(
        "LedgerlyPusher: {} \"{}\" — {}, not resurrecting, and not asking again until it's edited", id, title,
        *gone));
    co_return SkippedSheetDeleted{};
  }
  co_await queries_.markPushed(id, remoteID, at);
  log_(fmt::format("LedgerlyPusher: updated {} \"{}\" → sheet {}", id, title, remoteID));
  co_return Updated{remoteID};
}

}  // namespace vorlane
