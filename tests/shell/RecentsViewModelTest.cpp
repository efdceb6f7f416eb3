#include "shell/AppRecentsHolder.h"
#include "shell/RecentsViewModel.h"

#include "auth/AuthNotifications.h"
#include "store/StoreFixture.h"
#include "store/recents/RecentsHydrator.h"
#include "support/LogRecorder.h"
#include "support/TaskBench.h"

#include <cstdlib>
#include <vector>

namespace vorlane {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecentsViewModelTest : public StoreTest {
 protected:
  void add(const std::string& id, int minute, const std::string& owner = "o") {
    await(queriesOn(store).save({id, owner, "T " + id, "{}", present, present}));
    await(recents.record(owner, "ledgerly", id, present + std::chrono::minutes(minute)));
  }
  void addProject(const std::string& id, int minute) {
    await(queriesOn<ScenewardQueries>(store).save({id, "o", "T " + id, "{}", present, present}));
    await(recents.record("o", "sceneward", id, present + std::chrono::minutes(minute)));
  }
  /// Lets the list do what it has been asked to, and tells the ids that it shows.
  std::vector<std::string> shown() {
    bench.settle();
    std::vector<std::string> ids;
    for (const auto& item : model->items()) ids.push_back(item.id);
    return ids;
  }

  std::shared_ptr<AgentStore> store = open();
  testing::TaskBench bench;
  std::shared_ptr<StoreNotifications> storeNotifications =
      std::make_shared<StoreNotifications>(signals, bench.executor());
  RecentsQueries recents{store, storeNotifications};
  NotificationCenter center;
  testing::LogRecorder log;
  std::optional<std::string> user = "o";
  AgentPreferences::Snapshot preferences;
  int hydrators = 0;
  /// As the desktop program will hand it in.
  std::function<RecentsViewModel::Hydrator(LedgerlyQueries, ScenewardQueries)> hydratorFor =
      [this](LedgerlyQueries sheets, ScenewardQueries projects) {
        ++hydrators;
        const RecentsHydrator hydrator(sheets, projects, LocalCalendar("UTC"), [this] { return present; });
        return [hydrator](const RecentEntryRow& row) { return hydrator.hydrate(row); };
      };
  RecentsViewModel::Settings settings{
      .recents = recents,
      .hydrator = [this] { return hydratorFor(queriesOn(store), queriesOn<ScenewardQueries>(store)); },
      .userIDProvider = [this] { return user; },
      .preferences = [this] { return preferences; },
      .storeNotifications = storeNotifications,
      .notifications = center,
      .main = bench.executor(),
      .worker = bench.executor(),
      .log = log.log()};
  std::shared_ptr<RecentsViewModel> model = std::make_shared<RecentsViewModel>(settings);
};

TEST_F(RecentsViewModelTest, ShowsTheLastOpenedOfWhatIsIncluded) {
  add("a", 1);
  addProject("b", 2);
  add("c", 3);
  await(recents.record("o", "ledgerly", "unknown", present + std::chrono::minutes(4)));
  await(recents.record("o", "else", "a", present + std::chrono::minutes(5)));
  model->setAppFilter(std::nullopt);
  EXPECT_THAT(shown(), ElementsAre("c", "b", "a"));
  EXPECT_EQ(model->items()[1].title, "T b");
  EXPECT_THAT(model->items()[1].subtitle, HasSubstr("Project · updated "));
  preferences.recentsCount = 2;
  model->setAppFilter(VorlaneApp::ledgerly);
  EXPECT_THAT(shown(), ElementsAre("c", "a")) << "filtered first, then cut";
  preferences.includeLedgerlyInRecents = false;
  model->setAppFilter(std::nullopt);
  EXPECT_THAT(shown(), ElementsAre("b"));
  preferences.recentsCount = -1;
  model->setAppFilter(std::nullopt);
  EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(RecentsViewModelTest, FollowsTheChangesOfTheListAndOfTheAccount) {
  int replaced = 0;
  const auto observation = model->observe([&] { ++replaced; });
  model->subscribe();
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

  user = "p";
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("x"));
  EXPECT_EQ(model->currentUserID(), "p");
  const int quiet = hydrators;
  add("f", 3);
  EXPECT_EQ(shown().size(), 1U);
  EXPECT_EQ(hydrators, quiet) << "the other person's changes are none of ours";
  user.reset();
  replaced = 0;
  center.post(auth::changed);
  EXPECT_THAT(shown(), IsEmpty());
  EXPECT_EQ(replaced, 1);
  std::weak_ptr<RecentsViewModel> gone = model;
  model.reset();
  center.post(auth::changed);
  bench.settle();
  EXPECT_TRUE(gone.expired());
}

TEST_F(RecentsViewModelTest, KeepsItsItemsThroughAFailureButNotThroughAChangeOfAccount) {
  model->subscribe();
  add("a", 1);
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("a"));
  inFile("ALTER TABLE recents RENAME TO away");
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("a"));
  EXPECT_THAT(log.take(), ElementsAre(HasSubstr("RecentsViewModel.reload failed: ")));
  user = "p";
  center.post(auth::changed);
  EXPECT_THAT(shown(), IsEmpty());
  inFile("ALTER TABLE away RENAME TO recents");
  user = "o";
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("a"));
}

TEST_F(RecentsViewModelTest, ShowsNothingOfAnAccountThatWasLeftDuringTheReading) {
  model->subscribe();
  add("a", 1);
  add("x", 1, "p");
  std::vector<std::string> seen;
  const auto observation = model->observe([&] {
    for (const auto& item : model->items()) seen.push_back(item.id);
  });
  hydratorFor = [this, usual = hydratorFor](LedgerlyQueries sheets, ScenewardQueries projects) {
    if (std::exchange(user, "p") == "o") center.post(auth::changed);
    return usual(sheets, projects);
  };
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("x"));
  EXPECT_THAT(seen, ElementsAre("x"));
}

class AppRecentsHolderTest : public RecentsViewModelTest {
 protected:
  AppRecentsHolder::Settings holderSettings(std::optional<std::string> container) {
    AppRecentsHolder::Settings result{.places = {},
                                      .ledgerlyBase = "https://ledgerly.test",
                                      .scenewardBase = "https://sceneward.test",
                                      .currentUserID = [this] { return user; },
                                      .bearer = []() -> Task<std::optional<std::string>> { co_return "t"; },
                                      .network = [this](URLRequest request) -> Task<URLResponse> {
                                        requests.push_back(request.url);
                                        if (hang) co_await never.wait();
                                        co_return URLResponse{
                                            .status = 200,
                                            .body = R"({"projects":[],"sheets":[{"id":7,"name":"Seven",)"
                                                    R"("updatedAt":"2026-01-01T00:00:00Z"}]})"};
                                      },
                                      .journal = std::make_shared<SyncJournal>(),
                                      .sheetExchange = std::make_shared<AsyncMutex>(),
                                      .preferences = [this] { return preferences; },
                                      .storeNotifications = storeNotifications,
                                      .notifications = center,
                                      .hydrator = hydratorFor,
                                      .main = bench.executor(),
                                      .concurrent = bench.executor(),
                                      .log = log.log()};
    result.places.container = std::move(container);
    return result;
  }

  std::vector<std::string> requests;
  bool hang = false;
  Event never;
};

TEST_F(AppRecentsHolderTest, FetchesIntoTheListAndReplacesTheEarlierPolling) {
  AppRecentsHolder holder(holderSettings(folder.path));
  ASSERT_TRUE(holder.store() && holder.fetcher());
  EXPECT_NE(holder.store(), store) << "a store of its own";
  hang = true;
  holder.startPolling();
  bench.settle();
  EXPECT_EQ(requests.size(), 1U);
  hang = false;
  holder.startPolling();
  // The writer thread posts its answers; each is settled when it has come.
  while (inFile("SELECT count(*) FROM recents") != "1" || requests.size() < 3) bench.settle();
  never.set();
  bench.settle();
  EXPECT_EQ(requests.size(), 3U) << "the earlier polling has ended";
  model = holder.viewModel();
  center.post(auth::changed);
  EXPECT_THAT(shown(), ElementsAre("7"));
}

TEST_F(AppRecentsHolderTest, StandsOnAFolderThatGoesWithItWhenItsStoreCannotBeOpened) {
  const TemporaryFolder temporary;
  ::setenv("TMPDIR", temporary.path.c_str(), 1);
  std::ofstream(temporary.path + "/file") << "kept";
  std::ofstream(temporary.path + "/container") << "no folder";
  const auto entries = [&] {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary.path))
      names.push_back(entry.path().filename().string().substr(0, 17));
    std::ranges::sort(names);
    return names;
  };
  for (const auto& container : {std::optional<std::string>(), std::optional(temporary.path + "/container")}) {
    auto chosen = holderSettings(container);
    if (container) chosen.hydrator = nullptr;
    AppRecentsHolder holder(std::move(chosen));
    EXPECT_THAT(entries(), ElementsAre("container", "file", "vorlane-fallback-"));
    EXPECT_FALSE(holder.store() || holder.fetcher());
    holder.startPolling();
    center.post(auth::changed);
    bench.settle();
    EXPECT_EQ(holder.viewModel()->currentUserID().has_value(), !container) << "idle where nobody looks";
  }
  EXPECT_THAT(requests, IsEmpty());
  EXPECT_THAT(entries(), ElementsAre("container", "file"));
  ::setenv("TMPDIR", (temporary.path + "/file").c_str(), 1);
  EXPECT_THROW(AppRecentsHolder(holderSettings(std::nullopt)), std::exception);
  ::unsetenv("TMPDIR");
}

}  // namespace
}  // namespace vorlane
