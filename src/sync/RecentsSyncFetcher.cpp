#include "sync/RecentsSyncFetcher.h"

#include "base/Failure.h"
#include "base/JSON.h"
#include "base/JSONArguments.h"

#include <fmt/format.h>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <string_view>
#include <utility>
#include <vector>

namespace vorlane {
namespace {

namespace this_coro = boost::asio::this_coro;
using boost::asio::cancellation_type;

constexpr std::string_view ledgerlyApp = "ledgerly", scenewardApp = "sceneward";

/// A string that may be missing or null. Throws Failure for a value of another type.
std::optional<std::string> optionalString(const JSONMap& map, std::string_view key) {
  const auto* value = json::find(map, key);
  if (value == nullptr || value->is_null()) return std::nullopt;
  if (!value->is_string()) throw Failure(fmt::format("\"{}\" of an entry is no string", key));
  return std::string(value->get_string());
}

std::string requiredString(const JSONMap& map, std::string_view key) {
  auto text = optionalString(map, key);
  if (!text) throw Failure(fmt::format("an entry has no \"{}\"", key));
  return std::move(*text);
}

}  // namespace

/// One entry of a list, as the cloud tells it.
struct RecentsSyncFetcher::Entry {
  std::string id;
  std::optional<std::string> title;
  std::string updatedAt;
};

/// How one service's list is asked for and read.
struct RecentsSyncFetcher::Listing {
  std::string_view app;
  cloud::API Settings::* api;
  std::string_view path;
  std::string_view key;
  /// Whether an id may be a number; it is then kept as its decimal text.
  bool numericIDs;
  /// What may hold the title, the first that is there wins; empty names end the list.
  std::string_view titleKeys[3];

  std::string id(const JSONMap& entry) const {
    const auto* value = json::find(entry, "id");
    if (!numericIDs || value == nullptr || value->is_string()) return requiredString(entry, "id");
    if (!value->is_int64()) throw Failure("id is neither String nor Int");
    return std::to_string(value->get_int64());
  }

  std::optional<std::string> title(const JSONMap& entry) const {
    std::optional<std::string> first;
    for (const auto titleKey : titleKeys) {
      // All of them are read, since a wrong type anywhere says that this is not the list we know.
      auto text = titleKey.empty() ? std::nullopt : optionalString(entry, titleKey);
      if (!first) first = std::move(text);
    }
    return first;
  }

  /// The entries of an answer, all of them or, where one cannot be read, a Failure.
  std::vector<Entry> entries(std::string_view body) const {
    const auto document = parseJSONMap(body);
    const auto* values = json::array(document, key);
    if (values == nullptr) throw Failure(fmt::format("the answer has no list \"{}\"", key));
    std::vector<Entry> entries;
    for (const auto& value : *values) {
      const auto* entry = value.if_object();
      if (entry == nullptr) throw Failure(fmt::format("an entry of \"{}\" is no object", key));
      entries.push_back({id(*entry), title(*entry), requiredString(*entry, "updatedAt")});
    }
    return entries;
  }
};

const RecentsSyncFetcher::Listing RecentsSyncFetcher::listings[] = {
    {ledgerlyApp, &Settings::ledgerly, "/api/user/sheets", "sheets", true, {"name", "title", "listName"}},
    {scenewardApp, &Settings::sceneward, "/api/v1/projects", "projects", false, {"name"}},
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
  const auto body = co_await answer(listing, AccountMark((settings_.*listing.api).account, userID));
  for (auto& entry : listing.entries(body)) co_await take(listing, userID, std::move(entry));
}

Task<std::string> RecentsSyncFetcher::answer(const Listing& listing, AccountMark mark) const {
  const auto requireAccount = [&mark] {
    if (!mark.holds()) throw Failure("the account changed during the request");
  };
  const auto& api = settings_.*listing.api;
  auto request = api.request("GET", listing.path);
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
  co_return std::move(response.body);
}

/// The time of the cloud stands, also when it is earlier than the one that is there. Both
/// writes signal by themselves what they changed.
Task<> RecentsSyncFetcher::take(const Listing& listing, std::string userID, Entry entry) const {
  const auto updatedAt = dateFromISO8601(entry.updatedAt);
  if (!updatedAt) {
    settings_.log(fmt::format("RecentsSyncFetcher: {} {} has an unreadable updatedAt {}", listing.app,
                              entry.id, cloud::quoted(entry.updatedAt)));
    co_return;
  }
  co_await settings_.recents.record(userID, std::string(listing.app), entry.id, *updatedAt);
  auto title = entry.title.value_or(entry.id);
  if (listing.app == ledgerlyApp && settings_.ledgerlyStore) {
    co_await settings_.ledgerlyStore->mergeRemoteMetadata(entry.id, userID, std::move(title), *updatedAt);
  } else if (listing.app == scenewardApp && settings_.scenewardStore) {
    co_await settings_.scenewardStore->mergeRemoteMetadata(entry.id, userID, std::move(title), *updatedAt);
  }
}

}  // namespace vorlane
