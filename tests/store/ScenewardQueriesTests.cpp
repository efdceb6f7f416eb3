#include "StoreFixture.h"

#include "base/JSONArguments.h"
#include "base/SHA256.h"
#include "store/ScenewardID.h"
#include "store/ScenewardQueries.h"
#include "store/ScenewardSceneSeed.h"
#include "store/ScenewardTombstones.h"

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

namespace vorlane {
namespace {

const std::string upper = "AAAAAAAA-0000-4000-8000-00000000000F",
                  lower = "aaaaaaaa-0000-4000-8000-00000000000f";

class ScenewardStore : public StoreTest {
 protected:
  ScenewardStore() { watched = "com.vorlane.store.sceneward.o.changed"; }
  void save(ScenewardProjectRow row) {
    await(queries.save(std::move(row)));
    newSignals();
  }
  Date at(int milliseconds) const { return noon + std::chrono::milliseconds(milliseconds); }
  /// Id, document, revision and the milliseconds of the last edit, of the push and of the refusal.
  std::string rows() {
    return inFile(
        "SELECT id, data, remote_version, substr(updated_at, 21), substr(synced_at, 21), "
        "substr(push_blocked_at, 21) FROM sceneward_projects ORDER BY id");
  }

  const Date noon = present;
  ScenewardQueries queries = queriesOn<ScenewardQueries>(open());
};

// What both applications' documents share is tested with the sheets.
TEST_F(ScenewardStore, EveryOperationReachesTheRowWhateverTheSpellingOfItsId) {
  save({upper, "o", "T", "{}", at(0), at(1), at(2), 3, at(4)});
  EXPECT_EQ(inFile("SELECT * FROM sceneward_projects"),
            lower +
                "|o|T|{}|2026-03-01 12:00:00.000|2026-03-01 12:00:00.001|2026-03-01 12:00:00.002|3|"
                "2026-03-01 12:00:00.004");
  EXPECT_EQ(queries.fetch(upper)->remoteVersion, 3);
  present = at(5);
  const auto edit = [](JSONMap& document) { document["b"] = 2; };
  const std::tuple<std::function<Task<>()>, std::string, int> steps[] = {
      {[&] { return queries.replaceData(upper, "{\"a\":1}"); }, lower + R"(|{"a":1}|3|001|002|004)", 1},
      {[&] { return queries.markPushBlocked(upper, at(9)); }, lower + R"(|{"a":1}|3|001|002|009)", 0},
      {[&] { return queries.mutateDocument(upper, edit); }, lower + R"(|{"a":1,"b":2}|3|005|002|009)", 1},
      {[&] { return queries.markPushed(upper, 7, at(5)); }, lower + R"(|{"a":1,"b":2}|7|005|005|-)", 1},
      {[&] { return queries.deleteProject(upper); }, "", 1},
      {[&] { return queries.replaceData(upper, "{}"); }, "", 0},
  };
  for (const auto& [step, rowsAfter, changes] : steps) {
    await(step());
    EXPECT_EQ(rows(), rowsAfter);
    EXPECT_EQ(newSignals(), changes) << rowsAfter;
  }
  save({"Scene A", "o", "T", "{}", at(0), at(0)});
  EXPECT_FALSE(queries.fetch("scene a"));
  EXPECT_EQ(failureOf([&] { await(queries.mutateDocument(upper, edit)); }), "scene " + upper + " not found");
}

TEST_F(ScenewardStore, AListIsReadFromItsIndexAndNeverFromTheDocuments) {
  for (int i = 0; i < 3; ++i) save({std::to_string(i), "o", "T", "{}", at(0), at(i), at(i)});
  save({"other", "p", "T", "{}", at(0), at(0)});
  const std::tuple<std::optional<std::int64_t>, const char*> cases[] = {
      {std::nullopt, "210"}, {0, "210"}, {-1, "210"}, {1, "2"}, {2, "21"}, {9, "210"}};
  for (const auto& [limit, ids] : cases) {
    std::string listed;
    for (const auto& project : queries.listMeta("o", limit)) listed += project.id;
    EXPECT_EQ(listed, ids) << limit.value_or(99);
  }
  EXPECT_EQ(queries.listMeta("o", 1).front().syncedAt, at(2));
  EXPECT_THAT(inFile("EXPLAIN QUERY PLAN SELECT id, title, updated_at, synced_at FROM sceneward_projects "
                     "WHERE owner_id = 'o' ORDER BY updated_at DESC LIMIT 9"),
              ::testing::EndsWith("USING COVERING INDEX idx_sceneward_projects_listing (owner_id=?)"));
}

TEST_F(ScenewardStore, AForkIsANewProjectWithTheSameWork) {
  save({lower, "o", "T", "{\"a\":1}", at(0), at(1), at(2), 3, at(4)});
  save({"clean", "o", "T", "{}", at(0), at(1), at(1)});
  inFile("ALTER TABLE sceneward_projects ADD COLUMN newer TEXT DEFAULT 'kept'");
  EXPECT_TRUE(queries.pendingPush("o").empty());
  const auto fork = await(queries.forkProject(upper));
  EXPECT_EQ(newSignals(), 1);
  EXPECT_EQ(ScenewardID::canonical(fork.value()), fork);
  EXPECT_NE(fork, lower);
  EXPECT_EQ(inFile("SELECT data, created_at, substr(updated_at, 21), synced_at, remote_version, "
                   "push_blocked_at, newer FROM sceneward_projects WHERE id = '" +
                   *fork + "'"),
            R"({"a":1}|2026-03-01 12:00:00.000|001|-|-|-|kept)");
  ASSERT_EQ(queries.pendingPush("o").size(), 1U);
  EXPECT_EQ(queries.pendingPush("o").front().id, fork);
  EXPECT_EQ(await(queries.forkProject(lower)), std::nullopt);
  EXPECT_EQ(newSignals(), 0);
}

TEST_F(ScenewardStore, AListingBringsNothingBackThatWasRemoved) {
  save({lower, "o", "T", "{\"a\":1}", at(0), at(-5), at(-5), 3, at(-5)});
  for (const auto& [project, restored] : {std::pair("gone", "NULL"), {"back", "''"}}) {
    inFile("INSERT INTO sceneward_cancelled_projects VALUES ('" + sha256Hex("o") + "', '" + project + "', " +
           restored + ")");
  }
  const std::tuple<std::string, std::string, bool> cases[] = {
      {upper, "o", true}, {"gone", "o", false}, {"gone", "p", true}, {"back", "o", true}, {"123", "o", true}};
  for (const auto& [id, owner, changed] : cases)
    EXPECT_EQ(await(queries.mergeRemoteMetadata(id, owner, "T", at(-1))), changed) << id << owner;
  EXPECT_EQ(rows(), "123|{}|-|999|999|- " + lower + "|{\"a\":1}|3|999|999|- back|{}|-|999|999|- " +
                        "gone|{}|-|999|999|-");
}

TEST(ScenewardSceneSeed, ANewSceneHasOneShotAndElevenLayersUnderIt) {
  auto scene = ScenewardSceneSeed::document({{"intExt", "INT."}});
  EXPECT_FALSE(ScenewardSceneSeed::repair(scene));
  const auto folderID = scene.at("folders").at(0).at("id").as_string();
  std::set<std::string_view> ids{folderID};
  for (const auto& layer : scene.at("layers").as_array()) {
    EXPECT_EQ(layer.at("parentFolderId").as_string(), folderID);
    ids.insert(layer.at("id").as_string());
  }
  EXPECT_EQ(ids.size(), 12U);
  const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
  std::ifstream golden(GOLDEN "new-scene.json");
  EXPECT_EQ(std::regex_replace(writeJSON(scene), uuid, "U") + "\n",
            std::string(std::istreambuf_iterator<char>(golden), {}));
}

TEST(ScenewardSceneSeed, ShapesGoToTheLayerOfTheirKind) {
  // The shape, the scene's layers, and the layer that the shape gets.
  const std::string layers = R"([{"id":1},{"id":"a","type":"set-design"},{"id":"b","type":"props"}])";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {R"({"kind":"door"})", layers, R"("a")"},
      {R"({"kind":"Door"})", layers, R"("b")"},
      {R"({"kind":7})", layers, R"("b")"},
      {R"({"kind":"light"})", layers, "1"},
      {R"({"kind":"door","layerId":null})", layers, "null"},
      {"{}", "[]", ""},
      {"{}", R"([{"id":"a"},7])", ""},
      {"{}", "[{}]", ""}};
  for (const auto& [text, given, expected] : cases) {
    auto shape = parseJSONMap(text);
    ScenewardSceneSeed::assignLayer(shape, parseJSONMap("{\"layers\":" + given + "}"));
    const auto* layerID = json::find(shape, "layerId");
    EXPECT_EQ(layerID == nullptr ? "" : writeJSON(*layerID), expected) << text << given;
  }
}

TEST(ScenewardSceneSeed, RepairBringsAnOlderSceneIntoFormOnce) {
  auto older =
      parseJSONMap(R"({"cues":7,"folders":[{"expanded":7,"id":"f"}],"layers":[{"id":"p","type":"props"},)"
                   R"({"id":"l","type":"lights"}],"shapes":[{"layerId":"l"},{"kind":"light","layerId":"x"},)"
                   R"({"layerId":7},{"kind":"flag"}]})");
  EXPECT_TRUE(ScenewardSceneSeed::repair(older));
  EXPECT_FALSE(ScenewardSceneSeed::repair(older));
  EXPECT_EQ(writeJSON(older),
            R"({"cues":7,"defaultGapS":3,"folders":[{"expanded":7,"id":"f","visible":true,)"
            R"("wireframe":false}],"layers":[{"id":"p","type":"props"},{"id":"l","type":"lights"}],)"
            R"("shapes":[{"layerId":"l"},{"kind":"light","layerId":"l"},{"layerId":"p"},)"
            R"({"kind":"flag","layerId":"l"}],"slots":[]})");
  for (const char* lost : {R"({"folders":[{"id":"f"}],"layers":[{"id":"lost"},7]})", R"({"folders":[]})"}) {
    auto scene = parseJSONMap(lost);
    EXPECT_TRUE(ScenewardSceneSeed::repair(scene)) << lost;
    EXPECT_EQ(scene.at("layers").at(10).at("parentFolderId"), scene.at("folders").at(0).at("id"));
  }
}

}  // namespace
}  // namespace vorlane
