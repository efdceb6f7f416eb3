#include "shell/AppRecentsHolder.h"
#include "shell/RecentsViewModel.h"
#include "shell/TemporaryDirectory.h"

#include "auth/AuthNotifications.h"
#include "shell/recents/RecentsHydrator.h"
#include "store/StoreFixture.h"
#include "support/LogRecorder.h"
#include "support/TaskHarness.h"

#include <cstdlib>
#include <set>
#include <vector>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecentsViewModelTest : public StoreTest {
 protected:
  void add(const std::string& id, int minute, const std::string& owner = "o",
           const std::string& app = "ledgerly") {
    if (app == "ledgerly") await(queriesOn(store).save({id, owner, "T " + id, "{}", present, present}));
    if (app == "sceneward")
      await(queriesOn<ScenewardQueries>(store).save({id, owner, "T " + id, "{}", present, present}));
    await(recents.record(owner, app, id, present + std::chrono::minutes(minute)));
  }
  void becomes(std::optional<std::string> next) {
    user = std::move(next);
    center.post(auth::changed);
  }
  /// Lets the list do what it has been asked to, and tells the ids that it shows.
  std::vector<std::string> shown() {
    bench.settle();
    std::vector<std::string> ids;
    for (const auto& item : model->items()) ids.push_back(item.id);
    return ids;
  }

  std::shared_ptr<AgentStore> store = open();
  testing::TaskHarness bench;
  std::shared_ptr<StoreNotifications> storeNotifications =
      std::make_shared<StoreNotifications>(signals, bench.executor());
  RecentsQueries recents{store, storeNotifications};
  NotificationCenter center;
  testing::LogRecorder log;
  std::optional<std::string> user = "o";
  AgentPreferences::Snapshot preferences;
  int hydrators = 0;
  std::function<void()> onReading = [] {};
  std::vector<std::string> requests;
  bool hang = true;
  Event never;

  cloud::API apiAt(const char* base) {
    return {.base = base,
            .send = [this](URLRequest request) -> Task<URLResponse> {
              requests.push_back(request.url);
              if (hang) co_await never.wait();
              constexpr auto lists =
                  R"({"projects":[],"sheets":[{"id":7,"name":"Seven","updatedAt":"2026-01-01T00:00:00Z"}]})";
              co_return URLResponse{.status = 200, .body = lists};
            },
            .bearer = []() -> Task<std::optional<std::string>> { co_return "t"; },
            .account = std::make_shared<const Account>(
                Account{[this] { return user; }, [] { return std::int64_t{0}; }})};
  }
  /// As the desktop program will hand them in.
  AppRecentsHolder::Settings settings(std::optional<std::string> container) {
    return {.paths = {.container = std::move(container)},
            .ledgerly = apiAt("https://ledgerly.test"),
            .sceneward = apiAt("https://sceneward.test"),
            .journal = std::make_shared<SyncJournal>(),
            .sheetExchange = std::make_shared<AsyncMutex>(),
            .preferences = [this] { return preferences; },
            .storeNotifications = storeNotifications,
            .notifications = center,
            .hydrator =
                [this](LedgerlyQueries sheets, ScenewardQueries projects) {
                  ++hydrators;
                  onReading();
                  const RecentsHydrator hydrator(sheets, projects, LocalCalendar("UTC"),
                                                 [this] { return present; });
                  return [hydrator](const RecentEntryRow& row) { return hydrator.hydrate(row); };
                },
            .main = bench.executor(),
            .concurrent = bench.executor(),
            .log = log.log()};
  }
  std::unique_ptr<AppRecentsHolder> holder = std::make_unique<AppRecentsHolder>(settings(folder.path));
  std::shared_ptr<RecentsViewModel> model = holder->viewModel();
};

TEST_F(RecentsViewModelTest, ShowsTheLastOpenedOfWhatIsIncluded) {
  add("a", 1);
  add("b", 2, "o", "sceneward");
  add("c", 3);
  await(recents.record("o", "ledgerly", "unknown", present + std::chrono::minutes(4)));
  add("a", 5, "o", "else");
  struct Case {
    std::optional<VorlaneApp> filter;
    int count;
    bool withSheets;
    std::vector<std::string> shown;
  };
  const Case cases[] = {{VorlaneApp::ledgerly, 2, true, {"c", "a"}},  // filtered first, then cut
                        {std::nullopt, 2, false, {"b"}},
                        {std::nullopt, -1, true, {}},
                        {std::nullopt, 9, true, {"c", "b", "a"}}};
  for (const auto& now : cases) {
    preferences.recentsCount = now.count;
    preferences.includeLedgerlyInRecents = now.withSheets;
    model->setAppFilter(now.filter);
    EXPECT_EQ(shown(), now.shown);
  }
  EXPECT_EQ(model->items()[1].title, "T b");
  EXPECT_THAT(model->items()[1].subtitle, HasSubstr("Project · updated "));
}

TEST_F(RecentsViewModelTest, FollowsTheChangesOfTheListAndOfTheAccountAndKeepsItsItemsThroughAFailureAlone) {
  int replaced = 0;
  const auto observation = model->observe([&] { ++replaced; });
  add("a", 1);
  add("x", 1, "p");
  EXPECT_THAT(shown(), IsEmpty()) << "nothing was asked for yet";
  const auto reload = bench.start<bool>([&]() -> Task<bool> {
    co_await model->reload();
    co_return model->items().size() == 1;
  });
  EXPECT_THAT(shown(), ElementsAre("a"));
  EXPECT_EQ(reload->value, true);
  const int before = hydrators;
  for (const auto* id : {"b", "c", "d", "e"}) add(id, 2);
  EXPECT_EQ(shown().size(), 5U);
  EXPECT_LE(hydrators - before, 2) << "a burst of changes is joined";

  inFile("ALTER TABLE recents RENAME TO away");
  becomes("o");
  EXPECT_EQ(shown().size(), 5U);
  EXPECT_THAT(log.take(), ElementsAre(HasSubstr("RecentsViewModel.reload failed: ")));
  becomes("p");
  EXPECT_THAT(shown(), IsEmpty()) << "of the other person";
  inFile("ALTER TABLE away RENAME TO recents");
  becomes("p");
  EXPECT_THAT(shown(), ElementsAre("x"));
  EXPECT_EQ(model->currentUserID(), "p");
  const int quiet = hydrators;
  add("f", 3);
  EXPECT_EQ(shown().size(), 1U);
  EXPECT_EQ(hydrators, quiet) << "the other person's changes are none of ours";
  replaced = 0;
  becomes(std::nullopt);
  EXPECT_THAT(shown(), IsEmpty());
  EXPECT_EQ(replaced, 1);

  std::set<std::string> seen;
  const auto watching = model->observe([&] {
    for (const auto& item : model->items()) seen.insert(item.id);
  });
  onReading = [this] {
    if (user == "o") becomes("p");
  };
  becomes("o");
  EXPECT_THAT(shown(), ElementsAre("x"));
  EXPECT_THAT(seen, ElementsAre("x")) << "and nothing of the account that was left during the reading";
  std::weak_ptr<RecentsViewModel> gone = model;
  model.reset();
  holder.reset();
  becomes("o");
  bench.settle();
  EXPECT_TRUE(gone.expired());
}

TEST_F(RecentsViewModelTest, FetchesIntoTheListAndReplacesTheEarlierPolling) {
  ASSERT_TRUE(holder->store() && holder->fetcher());
  EXPECT_NE(holder->store(), store) << "a store of its own";
  holder->startPolling();
  bench.settle();
  EXPECT_EQ(requests.size(), 1U);
  hang = false;
  holder->startPolling();
  // The writer thread posts its answers; each is settled when it has come.
  while (inFile("SELECT count(*) FROM recents") != "1" || requests.size() < 3) bench.settle();
  never.set();
  bench.settle();
  EXPECT_EQ(requests.size(), 3U) << "the earlier polling has ended";
  becomes("o");
  EXPECT_THAT(shown(), ElementsAre("7"));
}

TEST_F(RecentsViewModelTest, StandsOnAFolderThatGoesWithItWhenItsStoreCannotBeOpened) {
  const TemporaryFolder temporary;
  ::setenv("TMPDIR", temporary.path.c_str(), 1);
  std::ofstream(temporary.path + "/file") << "kept";
  std::ofstream(temporary.path + "/container") << "no folder";
  std::filesystem::create_directory(temporary.path + "/vorlane-fallback-of an agent that was killed");
  const auto entries = [&] {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary.path))
      names.push_back(entry.path().filename().string().substr(0, 17));
    std::ranges::sort(names);
    return names;
  };
  for (const auto& container : {std::optional<std::string>(), std::optional(temporary.path + "/container")}) {
    auto chosen = settings(container);
    if (container) chosen.hydrator = nullptr;
    AppRecentsHolder fallen(std::move(chosen));
    EXPECT_THAT(entries(), ElementsAre("container", "file", "vorlane-fallback-"));
    {
      const TemporaryDirectory ofAnotherAgent;
      EXPECT_THAT(entries(), ElementsAre("container", "file", "vorlane-fallback-", "vorlane-fallback-"));
    }
    EXPECT_FALSE(fallen.store() || fallen.fetcher());
    fallen.startPolling();
    becomes("o");
    bench.settle();
    EXPECT_EQ(fallen.viewModel()->currentUserID().has_value(), !container) << "idle where nobody looks";
  }
  EXPECT_THAT(requests, IsEmpty());
  EXPECT_THAT(entries(), ElementsAre("container", "file"));
  ::setenv("TMPDIR", (temporary.path + "/file").c_str(), 1);
  EXPECT_THROW(AppRecentsHolder(settings(std::nullopt)), std::exception);
  ::unsetenv("TMPDIR");
}

}  // namespace
}  // namespace vorlane
