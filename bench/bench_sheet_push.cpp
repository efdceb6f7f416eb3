// A thousand dirty sheets of 20 KB pushed to the local cloud, against the same requests sent
// by libcurl alone, one after another on one connection.
#include "base/tasks/Runtime.h"
#include "bench/BareCurl.h"
#include "bench/CloudProcess.h"
#include "bench/Measure.h"
#include "platform/Platform.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"
#include "store/SnapshotCodec.h"
#include "sync/LedgerlyPusher.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_future.hpp>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

constexpr int sheets = 1000;
constexpr int rounds = 5;
constexpr auto& owner = bench::CloudProcess::owner;
using bench::BareCurl;
using bench::CloudProcess;

fs::path newFolder() {
  char name[] = "/tmp/vorlane-bench-XXXXXX";
  if (::mkdtemp(name) == nullptr) std::abort();
  return name;
}

/// A list of gear as the tools write it, of about 20 KB.
std::string document() {
  JSONArray categories;
  for (int c = 0; c < 5; ++c) {
    JSONArray items;
    for (int i = 0; i < 20; ++i) {
      items.push_back({{"id", fmt::format("6F9619FF-8B86-D011-B42D-{:06}{:06}", c, i)},
                       {"name", fmt::format("Lens {} mm, set {}", 18 + i, c)},
                       {"checked", i % 2 == 0},
                       {"qty", i % 7 + 1},
                       {"price", 12.5 + i},
                       {"notes", "Seen at the rental house; insured until Friday & on hold."},
                       {"vendor", "Rental & Sons"}});
    }
    categories.push_back({{"id", fmt::format("category-{}", c)},
                          {"name", fmt::format("Category {}", c)},
                          {"items", std::move(items)}});
  }
  return SnapshotCodec::encode({{"categories", std::move(categories)}});
}

/// Somebody's desk with its store and its network.
class Desk {
 public:
  Desk() {
    network_ = makeURLSession(cloud_->caFile);
    runtime_ = std::make_unique<Runtime>();
    store_ = std::make_shared<AgentStore>(folder_.string());
    notifications_ = std::make_shared<StoreNotifications>(
        makeSignalCenter(folder_ / "signals", runtime_->io(), runtime_->concurrent()), runtime_->io());
  }
  ~Desk() {
    runtime_->stop();
    cloud_.reset();
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  /// Pushes all sheets. With `sent` given, it takes the requests.
  void push(std::vector<URLRequest>* sent = nullptr) {
    LedgerlyPusher pusher(
        queries(),
        {{.base = cloud_->base,
          .send = [this, sent](URLRequest request) -> Task<URLResponse> {
            if (sent != nullptr) sent->push_back(request);
            co_return co_await network_->send(std::move(request));
          },
          .bearer = [this]() -> Task<std::optional<std::string>> { co_return cloud_->token; },
          .account = std::make_shared<const Account>(
              Account{[] { return owner; }, [] { return std::int64_t{0}; }})}},
        [](std::string_view) {}, std::make_shared<SyncJournal>(), std::make_shared<AsyncMutex>());
    const auto outcomes = await<LedgerlyPusher::Outcomes>([&] { return pusher.runOnce(); });
    const auto isPushed = [](const auto& outcome) { return outcome.second.index() < 2; };
    if (!std::ranges::all_of(outcomes, isPushed) || outcomes.size() != sheets) std::abort();
  }
  /// All sheets as if they had just been made, here and in the cloud.
  void renew() {
    const auto text = document();
    bytes_ = text.size();
    cloud_->removeDocuments();
    for (int i = 0; i < sheets; ++i) {
      const auto id = fmt::format("sheet-{}", i);
      const auto at = now() - std::chrono::milliseconds(sheets - i);
      await<void>([&] { return queries().deleteSheet(id); });
      await<void>([&] { return queries().save({id, owner, fmt::format("Sheet {}", i), text, at, at}); });
    }
  }
  void edit() {
    for (int i = 0; i < sheets; ++i) {
      await<void>([&] { return queries().mutateDocument(fmt::format("sheet-{}", i), [](JSONMap&) {}); });
    }
  }
  CloudProcess& cloud() { return *cloud_; }
  std::size_t bytes() const { return bytes_; }

 private:
  LedgerlyQueries queries() const { return {store_, notifications_}; }
  template <class T>
  T await(std::function<Task<T>()> work) {
    return boost::asio::co_spawn(runtime_->concurrent(), std::move(work), boost::asio::use_future).get();
  }

  const fs::path folder_ = newFolder();
  std::unique_ptr<CloudProcess> cloud_ = std::make_unique<CloudProcess>(folder_ / "cloud");
  std::unique_ptr<Runtime> runtime_;
  std::unique_ptr<URLSession> network_;
  std::shared_ptr<AgentStore> store_;
  std::shared_ptr<StoreNotifications> notifications_;
  std::size_t bytes_ = 0;
};

/// Medians of rounds, each of which pushes all sheets and then sends the same requests alone.
void measure(const char* what, Desk& desk, BareCurl& bare, void (Desk::*prepare)()) {
  std::vector<URLRequest> requests;
  (desk.*prepare)();
  desk.push(&requests);
  std::vector<double> ours, floor;
  for (int round = 0; round < rounds; ++round) {
    (desk.*prepare)();
    desk.cloud().clear();
    ours.push_back(bench::secondsFor([&] { desk.push(); }));
    desk.cloud().clear();
    floor.push_back(bench::secondsFor([&] {
      for (const auto& request : requests) bare.send(request);
    }));
  }
  const bench::Pair times{bench::percentile(ours, 0.5), bench::percentile(floor, 0.5)};
  fmt::print("{} {} sheets of {} bytes: {:.0f} ms; libcurl alone: {:.0f} ms; ratio {:.2f} (at most 1.3)\n",
             what, sheets, desk.bytes(), times.ours * 1e3, times.floor * 1e3, times.ratio());
}

void run() {
  Desk desk;
  BareCurl bare(desk.cloud().caFile);
  measure("creating", desk, bare, &Desk::renew);
  measure("updating", desk, bare, &Desk::edit);
}

}  // namespace
}  // namespace vorlane

int main() {
  ::mallopt(M_ARENA_MAX, 2);  // as the agent has it
  curl_global_init(CURL_GLOBAL_DEFAULT);
  vorlane::run();
}
