// A thousand dirty sheets of 20 KB pushed to the local cloud, against the same requests sent
// by libcurl alone, one after another on one connection.
#include "base/tasks/Runtime.h"
#include "bench/Measure.h"
#include "devcloud/DevCloud.h"
#include "platform/Platform.h"
#include "store/AgentStore.h"
#include "store/LedgerlyQueries.h"
#include "store/SnapshotCodec.h"
#include "sync/LedgerlyPusher.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>
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
constexpr char owner[] = "auth0|bench";

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

/// One handle of the library, and with it one connection.
class BareCurl {
 public:
  explicit BareCurl(const std::string& caFile) : easy_(curl_easy_init()) {
    curl_easy_setopt(easy_, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(easy_, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &BareCurl::append);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~BareCurl() { curl_easy_cleanup(easy_); }
  BareCurl(const BareCurl&) = delete;
  BareCurl& operator=(const BareCurl&) = delete;

  void send(const URLRequest& request) {
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    for (const auto& [name, value] : request.headers)
      headers = curl_slist_append(headers, (name + ": " + value).c_str());
    curl_easy_setopt(easy_, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    body_.clear();
    if (curl_easy_perform(easy_) != CURLE_OK) std::abort();
    curl_slist_free_all(headers);
    long status = 0, connections = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &connections);
    connections_ += connections;
    if (status < 200 || status > 299 || connections_ > 1) std::abort();
  }

 private:
  static std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
    static_cast<std::string*>(out)->append(bytes, size * count);
    return size * count;
  }

  CURL* easy_;
  std::string body_;
  long connections_ = 0;
};

/// The cloud in a process of its own, as everywhere else: its heap and its threads are not
/// the agent's. Made before this process has threads.
class CloudProcess {
 public:
  explicit CloudProcess(const fs::path& folder) {
    int ours[2], its[2];
    if (::pipe(ours) != 0 || ::pipe(its) != 0) std::abort();
    child_ = ::fork();
    if (child_ == 0) {
      ::close(its[1]);
      serve(folder, its[0], ours[1]);
      ::_exit(0);
    }
    ::close(its[0]);
    ::close(ours[1]);
    commands_ = its[1];
    answers_ = ours[0];
    std::string told;
    for (char byte = 0; ::read(answers_, &byte, 1) == 1 && byte != '\n';) told += byte;
    const auto facts = parseJSONMap(told);
    base = facts.at("base").as_string();
    token = facts.at("token").as_string();
    caFile = facts.at("caFile").as_string();
  }
  ~CloudProcess() {
    ::close(commands_);
    ::waitpid(child_, nullptr, 0);
    ::close(answers_);
  }
  CloudProcess(const CloudProcess&) = delete;
  CloudProcess& operator=(const CloudProcess&) = delete;

  /// Lets it forget the requests that it has recorded, so that it serves everybody alike.
  void clear() { order('c'); }
  void removeSheets() { order('r'); }

  std::string base, token, caFile;

 private:
  void order(char command) {
    char done = 0;
    if (::write(commands_, &command, 1) != 1 || ::read(answers_, &done, 1) != 1) std::abort();
  }
  static void serve(const fs::path& folder, int commands, int answers) {
    devcloud::DevCloud cloud({.directory = folder});
    cloud.start();
    cloud.putPerson({.sub = owner, .email = "bench@vorlane.test", .name = "Bench"});
    const auto text = writeJSON(JSONMap{{"base", cloud.base()},
                                        {"token", cloud.issueTokens(owner).accessToken},
                                        {"caFile", cloud.caFile().string()}}) +
                      "\n";
    if (::write(answers, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
    for (char command = 0; ::read(commands, &command, 1) == 1;) {
      cloud.clearRequests();
      if (command == 'r') {
        for (const auto& sheet : cloud.sheets(owner)) cloud.removeSheet(owner, sheet.id);
      }
      if (::write(answers, &command, 1) != 1) return;
    }
  }

  pid_t child_ = 0;
  int commands_ = -1, answers_ = -1;
};

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
    cloud_->removeSheets();
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
