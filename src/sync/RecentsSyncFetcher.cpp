#include "sync/RecentsSyncFetcher.h"

#include "base/Failure.h"

#include <fmt/format.h>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <string_view>
#include <utility>

namespace vorlane {
namespace {

namespace this_coro = boost::asio::this_coro;
using boost::asio::cancellation_type;

constexpr std::string_view ledgerlyApp = "ledgerly", scenewardApp = "sceneward";

}  // namespace

/// How one service's list is asked for and read.
struct RecentsSyncFetcher::Listing {
  std::string_view app;
  cloud::API Settings::* api;
  std::string_view path;
  RecentsListReader::Form form;
};

const RecentsSyncFetcher::Listing RecentsSyncFetcher::listings[] = {
    {ledgerlyApp, &Settings::ledgerly, "/api/user/sheets", {"sheets", true, {"name", "title", "listName"}}},
    {scenewardApp, &Settings::sceneward, "/api/v1/projects", {"projects", false, {"name"}}},
};

RecentsSyncFetcher::RecentsSyncFetcher(Settings settings) : settings_(std::move(settings)) {}

Task<> RecentsSyncFetcher::runForever(std::chrono::seconds interval) {
  for (;;) {
    std::exception_ptr failure;
    try {
      if (auto user = settings_.ledgerly.account->currentUser()) {
        co_await syncOnce(std::move(*user));
      } else {
        settings_.log("RecentsSyncFetcher: signed out — skip");
      }
    } catch (...) {
      failure = std::current_exception();
    }
    if ((co_await this_coro::cancellation_state).cancelled() != cancellation_type::none) co_return;
    if (failure) settings_.log("RecentsSyncFetcher: pull failed " + describe(failure));
    co_await settings_.sleep(interval);
  }
}

Task<> RecentsSyncFetcher::syncOnce(std::string userID) {
  std::optional<std::string> error;
  for (const auto& listing : listings) {
    std::exception_ptr failure;
    try {
      co_await pull(listing, userID);
    } catch (...) {
      failure = std::current_exception();
    }
    if ((co_await this_coro::cancellation_state).cancelled() != cancellation_type::none) {
      throw CancelledFailure();
    }
    if (!failure) continue;
    error = describe(failure);
    settings_.log(fmt::format("RecentsSyncFetcher: {} pull failed {}", listing.app, *error));
  }
  if (error) {
    settings_.journal->failed(SyncJournal::Service::recents, userID, std::move(*error));
  } else {
    settings_.journal->succeeded(SyncJournal::Service::recents, userID);
  }
}

Task<> RecentsSyncFetcher::pull(const Listing& listing, std::string userID) const {
  std::optional<AsyncMutex::Hold> hold;
  if (listing.app == ledgerlyApp) hold.emplace(co_await settings_.exchange->lock());
  auto response = co_await answer(listing, AccountMark((settings_.*listing.api).account, userID));
  std::optional<std::string> unreadable;
  int more = 0;
  const auto takeEntry = [&](Entry entry) -> Task<> {
    const auto updatedAt = dateFromISO8601(entry.updatedAt);
    if (updatedAt) co_return co_await take(listing, userID, std::move(entry), *updatedAt);
    // One line, of however many.
    if (unreadable)
      ++more;
    else
      unreadable = fmt::format("{} has an unreadable updatedAt {}", cloud::excerpt(entry.id),
                               cloud::quoted(entry.updatedAt));
  };
  // The session counts the body for as long as it is held.
  const auto memory = response.memory;
  std::exception_ptr failure;
  try {
    co_await RecentsListReader::read(listing.form, std::move(response.body), takeEntry);
  } catch (...) {
    failure = std::current_exception();
  }
  if (unreadable && more > 0) *unreadable += fmt::format(", and so have {} more", more);
  if (unreadable) settings_.log(fmt::format("RecentsSyncFetcher: {} {}", listing.app, *unreadable));
  if (failure) std::rethrow_exception(failure);
}

Task<URLResponse> RecentsSyncFetcher::answer(const Listing& listing, AccountMark mark) const {
  const auto requireAccount = [&mark] {
    if (!mark.holds()) throw Failure("the account changed during the request");
  };
  const auto& api = settings_.*listing.api;
  auto request = api.request("GET", listing.path, cloud::Answer::list);
  cloud::setBearer(request, co_await api.bearer());
  // The answer is the list of whoever the token is of, and it is about to be filed under
  // this person: a token that was fetched across a change of account is of unknown owner.
  requireAccount();
  auto response = co_await api.send(std::move(request));
  // And a person who has left is not written to any more.
  requireAccount();
  if (!cloud::isSuccess(response)) {
    throw Failure(fmt::format("GET {} was answered with status {} and {}", listing.path, response.status,
                              cloud::quoted(cloud::bodyText(response))));
  }
  co_return response;
}

/// The time of the cloud stands, also when it is earlier than the one that is there. Both
/// writes signal by themselves what they changed.
Task<> RecentsSyncFetcher::take(const Listing& listing, std::string userID, Entry entry,
                                Date updatedAt) const {
  co_await settings_.recents.record(userID, std::string(listing.app), entry.id, updatedAt);
  auto title = entry.title.value_or(entry.id);
  if (listing.app == ledgerlyApp && settings_.ledgerlyStore) {
    co_await settings_.ledgerlyStore->mergeRemoteMetadata(entry.id, userID, std::move(title), updatedAt);
  } else if (listing.app == scenewardApp && settings_.scenewardStore) {
    co_await settings_.scenewardStore->mergeRemoteMetadata(entry.id, userID, std::move(title), updatedAt);
  }
}

}  // namespace vorlane
