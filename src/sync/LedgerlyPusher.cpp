#include "sync/LedgerlyPusher.h"

#include "base/Failure.h"
#include "base/JSONArguments.h"
#include "store/LedgerlySheetPayload.h"
#include "store/SnapshotCodec.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/json/monotonic_resource.hpp>

#include <exception>
#include <utility>

namespace vorlane {
namespace {

namespace this_coro = boost::asio::this_coro;
using boost::asio::cancellation_type;

/// What a sheet's tree and its cloud form take, for each byte of its text.
constexpr std::size_t treeSize = 8;

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

LedgerlyPusher::LedgerlyPusher(LedgerlyQueries queries, LedgerlyPushClient client, Log log,
                               std::shared_ptr<SyncJournal> journal, std::shared_ptr<AsyncMutex> exchange,
                               Sleeper sleep, std::function<bool()> isOnline)
    : queries_(std::move(queries)),
      client_(std::move(client)),
      log_(std::move(log)),
      journal_(std::move(journal)),
      exchange_(std::move(exchange)),
      sleep_(std::move(sleep)),
      isOnline_(std::move(isOnline)) {}

Task<> LedgerlyPusher::runForever(std::chrono::seconds interval) {
  log_(fmt::format("LedgerlyPusher: push loop started (every {}s)", interval.count()));
  bool wasOnline = true;
  for (;;) {
    const bool online = isOnline_();
    if (std::exchange(wasOnline, online) != online) {
      log_(online ? "LedgerlyPusher: the network is back"
                  : "LedgerlyPusher: there is no network, nothing is pushed");
    }
    std::exception_ptr failure;
    try {
      if (online) co_await runOnce();
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
  const AccountMark mark(client_.api.account);
  const auto& owner = mark.owner();
  if (!owner) {
    log_("LedgerlyPusher: signed out — skip");
    co_return outcomes;
  }
  // The documents stay in the database until their turn comes: thousands of sheets may be
  // waiting for a cloud that is slow.
  std::vector<std::string> ids;
  try {
    ids = queries_.pendingIDs(*owner);
  } catch (const std::exception& error) {
    log_("LedgerlyPusher: queue read failed " + describe(error));
    journal_->failed(SyncJournal::Service::sheets, *owner, describe(error));
  }
  if (ids.empty()) co_return outcomes;
  log_(fmt::format("LedgerlyPusher: {} sheet(s) pending", ids.size()));

  const auto executor = co_await this_coro::executor;
  const auto client = clientFor(mark);
  PassReport report(*journal_, *owner);
  auto ahead = prepareAhead(executor, ids.front(), *owner);
  for (auto id = ids.begin(); id != ids.end(); ++id) {
    auto ready = std::exchange(ahead, nullptr);
    if (id + 1 != ids.end()) ahead = prepareAhead(executor, *(id + 1), *owner);
    const auto outcome = co_await attempt(*id, *owner, std::move(ready), client);
    if (!outcome) continue;
    report.note(*outcome);
    outcomes.emplace(*id, *outcome);
    // What is left stays dirty, and waits until its owner, or the network, is back.
    if (std::holds_alternative<Failed>(*outcome) && (!mark.holds() || !isOnline_())) break;
  }
  co_return outcomes;
}

/// What a row comes to as a request.
struct LedgerlyPusher::Upload {
  std::string id, title;
  std::optional<std::int64_t> remoteID;
  /// The edit that is sent. Every mark says this and not when it was sent: an edit that is
  /// made meanwhile then leaves the row pending.
  Date at;
  std::optional<Date> syncedAt, pushBlockedAt;
  /// What the request carries; nothing when the row holds no list of categories.
  std::optional<std::string> body;
};

/// Null when the row is not pending any more. Throws for a document that cannot be read.
std::shared_ptr<LedgerlyPusher::Upload> LedgerlyPusher::prepare(const LedgerlyQueries& queries,
                                                                const std::string& id,
                                                                const std::string& owner) {
  auto row = queries.fetch(id);
  if (!row || row->ownerID != owner || DocumentRow::pushState(*row) != PushState::pending) return nullptr;
  // Thousands of small pieces that live for a moment would leave the heap in shreds.
  boost::json::monotonic_resource memory(treeSize * (row->data.size() + 1));
  auto document = SnapshotCodec::decode(row->data, &memory);
  std::optional<std::string> body;
  if (json::arrayOfObjects(document, "categories") != nullptr) {
    auto sheet = LedgerlySheetPayload::cloudForm(std::move(document));
    body = row->remoteID ? LedgerlyPushClient::updateBody(row->title, std::move(sheet))
                         : LedgerlyPushClient::createBody(row->title, std::move(sheet));
  }
  return std::make_shared<Upload>(
      Upload{.id = id,  // as it is stored; the row has it as text that is safe to show
             .title = std::move(row->title),
             .remoteID = row->remoteID,
             .at = row->updatedAt,
             .syncedAt = row->syncedAt,
             .pushBlockedAt = row->pushBlockedAt,
             .body = std::move(body)});
}

/// Reading and shaping a sheet takes as long as a quick cloud's answer, and is done while
/// the pass waits for that.
LedgerlyPusher::Preparation LedgerlyPusher::prepareAhead(const Executor& executor, const std::string& id,
                                                         const std::string& owner) const {
  // The work may outlive a pass that is cancelled, and with it this object.
  return SharedTask<std::shared_ptr<Upload>>::start(
      executor, [queries = queries_, id, owner]() -> Task<std::shared_ptr<Upload>> {
        co_await boost::asio::post(boost::asio::use_awaitable);
        co_return prepare(queries, id, owner);
      });
}

/// Whether the row is still as it was when the upload was prepared.
bool LedgerlyPusher::isUpToDate(const std::string& id, const std::shared_ptr<Upload>& upload) const {
  const auto row = queries_.status(id);
  if (!row || !upload) return !row && !upload;
  return row->updatedAt == upload->at && row->syncedAt == upload->syncedAt &&
         row->pushBlockedAt == upload->pushBlockedAt;
}

/// The client of a pass over one account's sheets. The token is fetched anew for each
/// of them, and by then somebody else may be signed in. Their token must not go out with
/// it: the cloud would file the sheet under them, or say of an update that there is no
/// such sheet, which would block it. Without any token there is nothing to mix up.
LedgerlyPusher::Client LedgerlyPusher::clientFor(const AccountMark& mark) const {
  auto client = std::make_shared<LedgerlyPushClient>(client_);
  client->api.bearer = [&api = client_.api, mark]() -> Task<std::optional<std::string>> {
    auto token = co_await api.bearer();
    if (mark.holds()) co_return token;
    const bool nobodysRequest = !token && !api.account->currentUser();
    if (!nobodysRequest) throw Failure("the account changed before the upload");
    co_return token;
  };
  return client;
}

/// Pushes the row if it is still pending; nothing when it is not.
Task<std::optional<LedgerlyPusher::Outcome>> LedgerlyPusher::attempt(std::string id, std::string owner,
                                                                     Preparation ready, Client client) const {
  std::optional<Outcome> outcome;
  std::exception_ptr failure;
  try {
    outcome = co_await pushPending(id, std::move(owner), std::move(ready), std::move(client));
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

Task<std::optional<LedgerlyPusher::Outcome>> LedgerlyPusher::pushPending(std::string id, std::string owner,
                                                                         Preparation ready,
                                                                         Client client) const {
  const auto hold = co_await exchange_->lock();
  auto upload = co_await ready->value();
  if (!isUpToDate(id, upload)) upload = prepare(queries_, id, owner);
  if (!upload) co_return std::nullopt;
  co_return co_await push(std::move(upload), std::move(client));
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::push(std::shared_ptr<Upload> upload, Client client) const {
  if (!upload->body) {
    log_(fmt::format("LedgerlyPusher: {} is a metadata stub, not a sheet — skipping", upload->id));
    co_return SkippedNotASheet{};
  }
  if (upload->remoteID) co_return co_await update(std::move(upload), std::move(client));
  co_return co_await create(std::move(upload), std::move(client));
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::create(std::shared_ptr<Upload> upload, Client client) const {
  const auto remoteID = co_await client->create(std::move(*upload->body));
  // The cloud has it, whoever is signed in by now, and also when this pass is being
  // cancelled: without the mark the next pass would make a second one.
  co_await this_coro::throw_if_cancelled(false);
  co_await queries_.markPushed(upload->id, remoteID, upload->at);
  log_(fmt::format("LedgerlyPusher: created {} \"{}\" → sheet {}", upload->id, upload->title, remoteID));
  co_return Created{remoteID};
}

Task<LedgerlyPusher::Outcome> LedgerlyPusher::update(std::shared_ptr<Upload> upload, Client client) const {
  const auto remoteID = *upload->remoteID;
  std::optional<std::string> gone;
  try {
    co_await client->update(remoteID, std::move(*upload->body));
  } catch (const LedgerlyPushClient::SheetGone& failure) {
    gone = failure.description();
  }
  co_await this_coro::throw_if_cancelled(false);  // the answer is there and is noted, as with a new sheet
  if (gone) {
    co_await queries_.markPushBlocked(upload->id, upload->at);
    log_(fmt::format(
        "LedgerlyPusher: {} \"{}\" — {}, not resurrecting, and not asking again until it's edited",
        upload->id, upload->title, *gone));
    co_return SkippedSheetDeleted{};
  }
  co_await queries_.markPushed(upload->id, remoteID, upload->at);
  log_(fmt::format("LedgerlyPusher: updated {} \"{}\" → sheet {}", upload->id, upload->title, remoteID));
  co_return Updated{remoteID};
}

}  // namespace vorlane
