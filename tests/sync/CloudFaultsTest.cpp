#include "tests/sync/CloudHarness.h"

#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <atomic>
#include <map>
#include <set>
#include <thread>

namespace vorlane {
namespace {

using std::chrono::milliseconds;
using ::testing::Not;
using Saves = CloudHarness;
using Lists = CloudHarness;
using Loops = CloudHarness;

class Sheets : public CloudHarness {
 protected:
  void edit(const std::string& id, const std::string& name) {
    present += std::chrono::seconds(1);
    await(sheets.mutateDocument(
        id, [name](JSONMap& document) { document["categories"].as_array()[0].as_object()["name"] = name; }));
  }
  /// The name that the sheet's category has in the cloud, if it is the edit that the row calls sent.
  std::string sent(const std::string& id) {
    const auto row = sheets.fetch(id);
    for (const auto& sheet : cloud.call(&devcloud::Sheets::ownedBy, ana)) {
      if (sheet.id != row->remoteID || row->syncedAt != row->updatedAt) continue;
      return std::string(sheet.data.at("categories").at(0).at("name").as_string());
    }
    return "not sent";
  }
};

TEST_F(Sheets, AreInTheCloudOnceWithTheirLastEditWhateverFailsUnlessTheAnswerToACreateWasLost) {
  const std::string noNumber = "response carried no numeric sheet.id";
  const Asked create{"POST",
                     sheetsPath,
                     {{"", noNumber},
                      {"[1]", noNumber},
                      {"{}", noNumber},
                      {R"({"sheet":{"id":7.0}})", noNumber},
                      {R"({"sheet":{"id":"7"}})", noNumber}}};
  // What becomes of an update that does not fail. A good status is the cloud's word, whatever stands
  // below it, and so is a 404.
  const std::map<std::string, std::string> whenUpdating{
      {"404", "deleted"}, {"garbage", "updated"}, {"answer", "updated"}};
  const std::set<std::string> lostCreates{"cut after", "cut body", "late"};
  std::size_t inCloud = 0;
  for (const auto& trouble : troubles({create, {"PUT", sheetsPath, {{"[1]", ""}}}})) {
    SCOPED_TRACE(writeJSON(trouble.fault.json()));
    const auto id = std::to_string(inCloud);
    const bool creates = trouble.fault.method == "POST";
    const auto found = whenUpdating.find(trouble.kind);
    const std::string outcome = creates || found == whenUpdating.end() ? "failed" : found->second;
    const bool settled = outcome != "failed";
    addSheet(id);
    if (!creates) pushSheets();
    if (!creates) edit(id, "Edited");
    during(trouble, [&] {
      EXPECT_THAT(pushSheets(), ElementsAre(StartsWith(id + ": " + outcome)));
      if (settled) EXPECT_THAT(pushSheets(), IsEmpty()) << "not asked about again";
    });
    EXPECT_THAT(lastError("sheets"), HasSubstr(settled ? "" : trouble.error));
    EXPECT_THAT(log.take(), Each(Not(HasSubstr("\n"))));
    if (settled) edit(id, "Later");
    // The one exception: the cloud made the sheet, and nobody here knows its number.
    const std::size_t lost = creates && lostCreates.contains(trouble.kind) ? 1 : 0;
    EXPECT_TRUE(!trouble.isLate() || eventually([&] {
      return cloud.call(&devcloud::Sheets::ownedBy, ana).size() >= inCloud + lost;
    }));
    inCloud += 1 + lost;
    EXPECT_THAT(pushSheets(), ElementsAre(StartsWith(id + (creates ? ": created " : ": updated "))));
    EXPECT_EQ(lastError("sheets"), "");
    EXPECT_EQ(sent(id), settled ? "Later" : creates ? "First" : "Edited");
    EXPECT_EQ(cloud.call(&devcloud::Sheets::ownedBy, ana).size(), inCloud);
    EXPECT_THAT(pushSheets(), IsEmpty());
  }
}

TEST_F(Sheets, LoseNothingWhateverHappensBeforeTheCloudsAnswerIsNoted) {
  struct Change {
    std::string name;
    std::function<void()> change;
    const char* second;  // what becomes of the sheet behind it, if the pass goes on
    std::size_t requests, pushedNext;
    std::string created, updated, deleted;  // what is in the cloud then, by the answer that came too late
  };
  const Change changes[] = {
      {"edited", [&] { edit("edited", "Later"); }, "created", 2, 1, "Later", "Later", "Later"},
      {"signed out", [&] { become({}, token); }, "account changed", 1, 1, "First", "updated", "not sent"},
      {"somebody else", [&] { signIn(bo); }, "account changed", 1, 1, "First", "updated", "not sent"},
      {"out and in", [&] { ++epoch; }, "account changed", 1, 1, "First", "updated", "not sent"},
      {"refreshed", [&] { signIn(ana); }, "created", 2, 0, "First", "updated", "not sent"},
      {"cancelled", [&] { cancel(); }, nullptr, 1, 1, "First", "updated", "not sent"},
  };
  for (const auto& [name, change, second, requests, pushedNext, created, updated, deleted] : changes) {
    addSheet(name);
    const std::pair<std::string, std::string> outcomes[] = {
        {"created", created}, {"updated", updated}, {"deleted", deleted}};
    for (const auto& [outcome, inCloud] : outcomes) {
      SCOPED_TRACE(name + outcome);
      if (outcome != "created") edit(name, outcome);
      addSheet(name + outcome, 9);
      cloud.call(&RequestLog::clear);
      if (outcome == "deleted") cloud.call(&Faults::add, {.path = sheetsPath, .prefix = true, .status = 404});
      bool once = false;
      meanwhile = [&](char place) -> Task<> {
        if (place != 'p' || std::exchange(once, true)) co_return;
        change();
        co_await boost::asio::post(boost::asio::use_awaitable);  // a cancellation arrives
      };
      const auto pushed = pushSheets();
      EXPECT_EQ(pushed.size(), second == nullptr ? 0U : 2U);
      if (pushed.size() == 2) {
        EXPECT_THAT(pushed, ElementsAre(StartsWith(name + ": " + outcome), HasSubstr(second)));
      }
      EXPECT_THAT(cloud.call(&RequestLog::find, {}), SizeIs(requests))
          << "nothing goes out under another account";
      signIn(ana);
      EXPECT_THAT(pushSheets(), SizeIs(pushedNext));
      EXPECT_EQ(sent(name), inCloud);
    }
  }
  EXPECT_THAT(cloud.call(&devcloud::Sheets::ownedBy, bo), IsEmpty());
}

// A list that is read between an upload and its mark tells of a sheet that no row owns up to,
// or takes a title back.
TEST_F(Sheets, TwoThousandGoUpOnceEachWhileOneIsRefusedTheCloudIsSlowAndListsAreReadInBetween) {
  fetching.sceneward = cloud::API::at({}, "scenewardBase", network, bearer, account);
  RecentsSyncFetcher ofSheets(fetching);
  std::atomic<int> underWay = 0;
  meanwhile = [&](char place) -> Task<> {
    if (place == 'G' || place == 'P') EXPECT_EQ(++underWay, 1);
    if (place == 'g' || place == 'p') --underWay;
    co_return;
  };
  for (int i = 0; i < 2000; ++i) addSheet(std::to_string(i));
  cloud.call(&Faults::add, {.path = sheetsPath, .method = "POST", .status = 500});
  cloud.call(&Faults::add, {.path = sheetsPath, .method = "POST", .times = 20, .delay = milliseconds(20)});
  auto pushing = start(sheetPusher.runOnce());
  for (int i = 0; i < 40; ++i) await(ofSheets.syncOnce(ana));
  EXPECT_THAT(pushing.get(), SizeIs(2000));
  EXPECT_THAT(cloud.call(&devcloud::Sheets::ownedBy, ana), SizeIs(1999));
  EXPECT_THAT(pushSheets(), SizeIs(1));
  EXPECT_THAT(cloud.call(&devcloud::Sheets::ownedBy, ana), SizeIs(2000));
  EXPECT_EQ(inFile("SELECT COUNT(*), COUNT(DISTINCT remote_id) FROM ledgerly_sheets"), "2000|2000");
}

TEST_F(Saves, AreInTheCloudExactlyOnceOrBlockedAndKeepTheirOrderWhateverFails) {
  const std::set<std::string> blocking{"400", "404", "409", "410", "413", "422"};
  // Unknown means no: only a plain "true", said to this very account, lets it save.
  std::vector<std::pair<std::string, std::string>> profiles{{"[1]", ""}};
  constexpr auto profile = R"({{"subject":{},"persistenceCapabilities":{}}})";
  for (const auto* subject : {R"("auth0|Ana")", "1", "null"})
    profiles.emplace_back(fmt::format(profile, subject, R"({"cloudProjectWrite":true})"), "");
  for (const auto* may : {"[true]", "{}", R"({"cloudProjectWrite":false})", R"({"cloudProjectWrite":1})",
                          R"({"cloudProjectWrite":"true"})"})
    profiles.emplace_back(fmt::format(profile, R"("auth0|ana")", may), "");
  for (auto& [body, error] : profiles) error = "The cloud does not let this account save projects.";
  // Nor one that would take more to read than it can be worth.
  profiles.emplace_back(
      fmt::format(profile, R"("auth0|ana")", R"({"cloudProjectWrite":true})") + std::string(1 << 20, ' '),
      "longer than");
  const Asked upload{"PUT", projectsPath, {{"[1]", "invalidReceipt"}, {"{}", "invalidReceipt"}}};
  for (const auto& trouble : troubles({{"GET", "/api/v1/user/me", profiles}, upload})) {
    SCOPED_TRACE(writeJSON(trouble.fault.json()));
    ++round;
    save(1, project(1));
    save(2, project(2));
    const bool blocks = blocking.contains(trouble.kind), gone = trouble.kind == "410";
    during(trouble, [&] {
      EXPECT_EQ(pushSaves(), gone ? "1 blocked" : blocks ? "1 blocked, 2 pushed 1" : "1 failed");
    });
    const bool more = blocks && !gone;
    EXPECT_THAT(lastError("checkpoints"), HasSubstr(more ? "" : trouble.error));
    EXPECT_EQ(lastError("checkpoints").empty(), more) << "a success ends the error before it";
    EXPECT_THAT(log.take(), SizeIs(blocks ? 0 : 1));
    if (gone) {
      EXPECT_THAT(queue.entries(ana), IsEmpty());
      EXPECT_THAT(failureOf([&] { save(1, project(1)); }), HasSubstr("invalidRequest"));
      inFile("DELETE FROM sceneward_checkpoint_deleted_owners");  // for the next trouble
      continue;
    }
    const bool lands = trouble.isLate() && trouble.fault.method == "PUT";
    EXPECT_TRUE(!lands || eventually([&] { return commitsOf(1) > 0; }));
    EXPECT_EQ(pushSaves(), blocks ? "" : "1 pushed 1, 2 pushed 1");
    EXPECT_EQ(std::pair(commitsOf(1), commitsOf(2)), std::pair(blocks ? 0L : 1L, 1L));
    EXPECT_EQ(pushSaves(), "");
  }
}

TEST_F(Lists, ThatFailKeepWhatIsThereAndTheOtherListAndAreMadeGoodByTheNextPull) {
  cloud.call(&devcloud::Sheets::put, {.owner = ana, .name = "Night", .data = {{"categories", JSONArray()}}});
  cloud.call(&Projects::put, {.id = newLowercaseUUID(), .owner = ana, .name = "Pier"});
  Asked ofSheets{"GET", sheetsPath, {{"{}", "the answer has no list \"sheets\""}}};
  // What stands behind a good entry.
  const std::pair<const char*, const char*> entries[] = {
      {"1", "an entry of \"sheets\" is no object"},
      {R"({"updatedAt":"2026-01-01T00:00:00Z"})", "an entry has no \"id\""},
      {R"({"id":"b"})", "an entry has no \"updatedAt\""},
      {R"({"id":"b","updatedAt":1})", "\"updatedAt\" of an entry is no string"},
      {R"({"id":"b","name":"n","listName":1,"updatedAt":""})", "\"listName\" of an entry is no string"},
      {R"({"id":4.0,"updatedAt":""})", "id is neither String nor Int"},
      {R"({"id":18446744073709551615,"updatedAt":""})", "id is neither String nor Int"}};
  constexpr auto list = R"({{"sheets":[{{"id":"a","updatedAt":"2026-01-01T00:00:00Z"}},{}]}})";
  for (const auto& [entry, error] : entries)
    std::get<2>(ofSheets).emplace_back(fmt::format(list, entry), error);
  const Asked ofProjects{"GET",
                         projectsPath,
                         {{R"({"projects":[{"id":1,"updatedAt":""}]})", "\"id\" of an entry is no string"},
                          {R"({"projects":[{"id":null,"updatedAt":""}]})", "an entry has no \"id\""}}};
  const auto apps = [&] { return inFile("SELECT app FROM recents ORDER BY app"); };
  for (const auto& trouble : troubles({ofSheets, ofProjects})) {
    SCOPED_TRACE(writeJSON(trouble.fault.json()));
    inFile("DELETE FROM recents");
    const std::string app = trouble.fault.path == sheetsPath ? "ledgerly" : "sceneward";
    during(trouble, [&] { await(fetcher.syncOnce(ana)); });
    EXPECT_EQ(apps(), app == "ledgerly" ? "sceneward" : "ledgerly");
    EXPECT_THAT(log.take(), ElementsAre(AllOf(StartsWith("RecentsSyncFetcher: " + app + " pull failed "),
                                              HasSubstr(trouble.error), Not(HasSubstr("\n")))));
    EXPECT_THAT(lastError("recents"), HasSubstr(trouble.error));
    await(fetcher.syncOnce(ana));
    EXPECT_EQ(apps(), "ledgerly sceneward");
    EXPECT_EQ(lastError("recents"), "");
  }
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM ledgerly_sheets"), "1");
}

TEST_F(Loops, GoOnWhateverAPassComesToAndEndWhenTheyAreCancelled) {
  addSheet("s");
  for (const bool ofSheets : {true, false}) {
    int sleeps = 0;
    atUser = [&] {
      if (sleeps == 1) throw std::runtime_error("no vault");
    };
    sleep = [&](milliseconds interval) -> Task<> {
      EXPECT_EQ(interval, std::chrono::seconds(60));
      if (++sleeps == 2) signIn(ana);
      if (sleeps > 2) throw CancelledFailure();
      co_return;
    };
    meanwhile = [&](char place) -> Task<> {
      if (place == 'T') cancel();
      co_await boost::asio::post(boost::asio::use_awaitable);
    };
    become({}, {});
    run([&] {
      return ofSheets ? sheetPusher.runForever(std::chrono::seconds(60))
                      : fetcher.runForever(std::chrono::seconds(60));
    });
    EXPECT_EQ(sleeps, 2);
  }
  EXPECT_THAT(cloud.call(&RequestLog::find, {}), IsEmpty());
  EXPECT_THAT(
      log.take(),
      ElementsAre("LedgerlyPusher: push loop started (every 60s)", "LedgerlyPusher: signed out — skip",
                  "LedgerlyPusher: pass failed no vault", "LedgerlyPusher: 1 sheet(s) pending",
                  "RecentsSyncFetcher: signed out — skip", "RecentsSyncFetcher: pull failed no vault"));
}

}  // namespace
}  // namespace vorlane
