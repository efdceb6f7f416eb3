#pragma once

#include "base/JSONArguments.h"
#include "base/tasks/TaskGroup.h"
#include "devcloud/DevCloud.h"
#include "devcloud/Faults.h"
#include "devcloud/Identity.h"
#include "devcloud/People.h"
#include "devcloud/Projects.h"
#include "devcloud/RequestLog.h"
#include "devcloud/Sheets.h"
#include "platform/Platform.h"
#include "sync/LedgerlyPusher.h"
#include "sync/RecentsSyncFetcher.h"
#include "sync/ScenewardPusher.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/CheckpointPayload.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RawClient.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <thread>
#include <vector>

namespace vorlane {

using devcloud::Fault, devcloud::FaultCut, devcloud::Faults;
using devcloud::Projects, devcloud::RequestLog, devcloud::Sheets;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Text = std::optional<std::string>;
using Texts = std::vector<std::string>;

inline constexpr char ana[] = "auth0|ana", bo[] = "auth0|bo";
inline constexpr char sheetsPath[] = "/api/user/sheets", projectsPath[] = "/api/v1/projects";

/// What goes wrong with a request, by a name or a status, and a part of what a person is then told.
struct Trouble {
  std::string kind;
  Fault fault;
  std::string error;

  bool isLate() const { return kind == "late"; }
};

/// A kind of request: its method, what its path begins with, and answers of a good status that are no
/// use to it, with their errors.
using Asked = std::tuple<std::string, std::string, std::vector<std::pair<std::string, std::string>>>;

/// All that can go wrong with each of these.
inline std::vector<Trouble> troubles(const std::vector<Asked>& requests) {
  std::vector<Trouble> all;
  for (const auto& [method, path, answers] : requests) {
    // A client sends a request anew when a connection that it has used before breaks without a byte.
    std::vector<Trouble> some{{"cut before", {.times = 2, .cut = FaultCut::before}, ""},
                              {"cut after", {.times = 2, .cut = FaultCut::after}, ""},
                              {"cut body", {.cut = FaultCut::body}, ""},
                              {"late", {.delay = std::chrono::milliseconds(900)}, ""},
                              {"garbage", {.garbage = true}, ""}};
    const devcloud::Headers elsewhere{{"Location", "/elsewhere"}};
    for (const int status : {302, 400, 401, 403, 404, 409, 410, 413, 422, 429, 500, 503})
      some.push_back({std::to_string(status),
                      {.status = status, .headers = elsewhere, .body = "oh\nno"},
                      std::to_string(status)});
    for (const auto& [body, error] : answers) some.push_back({"answer", {.body = body}, error});
    for (auto& trouble : some) {
      std::tie(trouble.fault.method, trouble.fault.path, trouble.fault.prefix) =
          std::tuple(method, path, true);
      all.push_back(trouble);
    }
  }
  return all;
}

/// The real local cloud, the real transport and a real store, and all that goes between them; Ana is signed
/// in.
class CloudHarness : public StoreTest {
 protected:
  CloudHarness() {
    for (const auto* sub : {ana, bo})
      cloud.call(&devcloud::People::put, {.sub = sub, .email = "somebody@example.com", .name = "Somebody"});
    signIn(ana);
  }

  void signIn(const std::string& sub) {
    become(sub, cloud.call(&devcloud::Identity::issue, sub, {}).accessToken);
  }
  void become(const Text& nextUser, const Text& nextToken) {
    std::tie(user, token) = std::tie(nextUser, nextToken);
  }
  /// These change while nothing runs, or at the places below.
  Text user, token;
  /// What happens while the Token is fetched, while a request (its method's first letter) waits to be
  /// sent, and when its answer is there (that letter in lower case).
  std::function<Task<>(char place)> meanwhile;
  /// What happens when it is asked who is signed in, before that is told.
  std::function<void()> atUser;

  /// Runs a task to its end, which `cancel` may bring about.
  void run(const TaskBody& body) {
    TaskGroup group;
    cancel = [&] { group.cancel(); };
    group.spawn(runtime.concurrent(), "task", [&]() -> Task<> {
      try {
        co_await body();
      } catch (const std::exception& error) {
        EXPECT_TRUE(isCancellation(error)) << describe(error);
      }
    });
    await(group.join());
  }
  std::function<void()> cancel;
  /// Runs `body` while a request suffers, then lets the cloud be well again.
  void during(const Trouble& trouble, const std::function<void()>& body) {
    cloud.call(&Faults::add, trouble.fault);
    if (trouble.isLate()) patience = std::chrono::milliseconds(300);
    body();
    patience = std::chrono::seconds(20);
    cloud.call(&Faults::clear);
  }
  std::string lastError(const char* service) {
    const auto report = journal->report(ana);
    const auto* error = json::object(*json::object(report, service), "lastError");
    return error == nullptr ? "" : json::stringOr(*error, "error");
  }

  /// A sheet of Ana's with an edit, made so many seconds after noon, that the cloud has not seen.
  void addSheet(const std::string& id, int at = 0, std::optional<std::int64_t> remoteID = std::nullopt,
                const std::string& data = R"({"categories":[{"id":"c","items":[],"name":"First"}]})") {
    LedgerlySheetRow row{id, ana, "T " + id, data, present, present + std::chrono::seconds(at)};
    row.remoteID = remoteID;
    if (remoteID) row.syncedAt = present - std::chrono::seconds(60);
    await(sheets.save(std::move(row)));
  }
  /// One pass: "id: outcome" of each sheet.
  Texts pushSheets() {
    LedgerlyPusher::Outcomes outcomes;
    run([&]() -> Task<> { outcomes = co_await sheetPusher.runOnce(); });
    Texts texts;
    for (const auto& [id, outcome] : outcomes) {
      constexpr const char* names[] = {"created", "updated", "failed", "not a sheet", "deleted"};
      auto& text = texts.emplace_back(id + ": " + names[outcome.index()]);
      if (const auto* made = std::get_if<LedgerlyPusher::Created>(&outcome))
        text += fmt::format(" {}", made->remoteID);
      if (const auto* kept = std::get_if<LedgerlyPusher::Updated>(&outcome))
        text += fmt::format(" {}", kept->remoteID);
      if (const auto* failed = std::get_if<LedgerlyPusher::Failed>(&outcome)) text += " " + failed->error;
    }
    return texts;
  }

  /// Every round of a table has saves and projects of its own.
  int round = 0;
  std::string operation(int n) const { return fmt::format("{:08}-0000-4000-8000-00000000000{}", round, n); }
  std::string project(int n) const { return fmt::format("{:08}-2222-4333-8444-55555555555{}", round, n); }
  /// Queues the round's n-th save; its payload.
  std::string save(int n, const std::string& projectID, std::int64_t revision = 0) {
    auto payload = checkpointPayload(projectID, operation(n), revision);
    await(queue.enqueue(ana, projectID, payload));
    return payload;
  }
  /// One pass: "1 pushed 4, 2 blocked", by the saves' numbers, with the revisions.
  std::string pushSaves() {
    ScenewardPusher::Outcomes outcomes;
    run([&]() -> Task<> { outcomes = co_await savePusher->runOnce(); });
    Texts texts;
    for (const auto& [id, outcome] : outcomes) {
      constexpr const char* names[] = {"pushed", "failed", "blocked"};
      auto& text = texts.emplace_back(fmt::format("{} {}", id.back(), names[outcome.index()]));
      if (const auto* made = std::get_if<ScenewardPusher::Pushed>(&outcome))
        text += fmt::format(" {}", made->version);
    }
    return fmt::format("{}", fmt::join(texts, ", "));
  }
  long commitsOf(int n) {
    return std::ranges::count(cloud.call(&Projects::commits, ana), operation(n),
                              &devcloud::Commit::operationID);
  }

  std::atomic<std::int64_t> epoch = 0;
  const std::shared_ptr<const Account> account =
      std::make_shared<const Account>(Account{[this] {
                                                if (atUser) atUser();
                                                return user;
                                              },
                                              [this] { return epoch.load(); }});
  const BearerSource bearer = [this]() -> Task<Text> {
    const auto fetched = token;
    if (meanwhile) co_await meanwhile('T');
    co_return fetched;
  };
  const NetworkRunner network = [this](URLRequest request) -> Task<URLResponse> {
    request.timeout = patience;
    const char place = request.method[0];
    if (meanwhile) co_await meanwhile(place);
    auto response = co_await session->send(std::move(request));
    if (meanwhile) co_await meanwhile(static_cast<char>(place | 0x20));
    co_return response;
  };

  devcloud::DevCloud cloud{{.directory = folder.path + "/cloud"}};
  bool started = (cloud.start(), true);
  std::unique_ptr<URLSession> session = makeURLSession(cloud.caFile().string());
  std::chrono::milliseconds patience = std::chrono::seconds(20);
  std::shared_ptr<AgentStore> store = open();
  LedgerlyQueries sheets = queriesOn(store);
  ScenewardCheckpointQueue queue{store};
  NotificationCenter notifications;
  std::shared_ptr<SyncJournal> journal = std::make_shared<SyncJournal>();
  std::shared_ptr<AsyncMutex> exchange = std::make_shared<AsyncMutex>();
  testing::LogRecorder log;
  Sleeper sleep = sleepFor;
  const Sleeper sleeper = [this](std::chrono::milliseconds interval) { return sleep(interval); };

  const cloud::API api{cloud.base(), network, bearer, account};
  LedgerlyPusher sheetPusher{sheets, {api}, log.log(), journal, exchange, sleeper};
  std::shared_ptr<ScenewardPusher> savePusher = std::make_shared<ScenewardPusher>(
      queue,
      ScenewardPushClient{
          .api = api,
          .identify = [](URLRequest& request) { request.headers.emplace_back("x-id", "device"); }},
      notifications, journal, log.log());
  RecentsSyncFetcher::Settings fetching{
      .recents = {store, std::make_shared<StoreNotifications>(signals, runtime.io())},
      .ledgerlyStore = sheets,
      .scenewardStore = queriesOn<ScenewardQueries>(store),
      .ledgerly = api,
      .sceneward = api,
      .log = log.log(),
      .journal = journal,
      .exchange = exchange,
      .sleep = sleeper};
  RecentsSyncFetcher fetcher{fetching};
};

}  // namespace vorlane
