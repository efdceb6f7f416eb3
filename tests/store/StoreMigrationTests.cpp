#include "StoreFixture.h"

#include <algorithm>
#include <iterator>

namespace vorlane {
namespace {

constexpr char applied[] = "SELECT identifier FROM grdb_migrations ORDER BY rowid";
const std::string firstSix =
    "ledgerly_v1 ledgerly_v2_remote_id sceneward_v1 sceneward_v2_remote_version sceneward_v3_canonical_ids "
    "sceneward_v4_push_blocked";
const std::string allNine =
    firstSix + " sceneward_v5_explicit_checkpoint_queue sceneward_v6_project_save_cancellation recents_v1";

using StoreMigrations = StoreTest;

TEST_F(StoreMigrations, AFreshFileGetsAllNineAndTheExactTablesOnce) {
  const auto first = open();
  EXPECT_EQ(inFile(applied), allNine);
  // Every column with its type, whether it may be null and its place in the key; then the indices.
  const auto schema = inFile(
      "SELECT m.name, p.name, p.type, p.\"notnull\", p.pk FROM sqlite_master m, pragma_table_info(m.name) p "
      "WHERE m.type = 'table' AND m.name NOT LIKE 'sqlite_%' ORDER BY m.name, p.cid; "
      "SELECT name FROM sqlite_master WHERE type = 'index' AND sql IS NOT NULL ORDER BY name");
  std::ifstream golden(GOLDEN "schema.txt");
  std::string expected(std::istreambuf_iterator<char>(golden), {});
  std::ranges::replace(expected, '\n', ' ');
  EXPECT_EQ(schema + " ", expected);
  open();  // beside the first, as the recents holder does
  EXPECT_EQ(inFile(applied), allNine);
}

TEST_F(StoreMigrations, AnOlderFileGetsWhatItLacksAndAFailingMigrationRollsBackAlone) {
  open();
  inFile(
      "DROP TABLE recents; DROP TABLE sceneward_checkpoint_queue; DROP TABLE sceneward_cancelled_projects;"
      "DROP TABLE sceneward_cancelled_operations; DROP TABLE sceneward_checkpoint_deleted_owners;"
      "DELETE FROM grdb_migrations WHERE rowid > 6;"
      "CREATE TABLE sceneward_checkpoint_deleted_owners (x)");  // which the seventh makes second
  ASSERT_EQ(inFile(applied), firstSix);
  EXPECT_THAT(failureOf([&] { open(); }),
              HasSubstr("migration sceneward_v5_explicit_checkpoint_queue: table"));
  EXPECT_EQ(inFile(applied), firstSix);
  EXPECT_EQ(inFile("SELECT name FROM sqlite_master WHERE name = 'sceneward_checkpoint_queue'"), "");
  inFile("DROP TABLE sceneward_checkpoint_deleted_owners");
  open();
  EXPECT_EQ(inFile(applied), allNine);
}

TEST_F(StoreMigrations, AFileOfANewerBuildOpensAndKeepsItsColumns) {
  open();
  inFile("INSERT INTO grdb_migrations VALUES ('ledgerly_v9'); ALTER TABLE ledgerly_sheets ADD COLUMN c TEXT");
  const auto queries = queriesOn(open());
  await(queries.save({"s", "o", "One", "{}", present, present}));
  inFile("UPDATE ledgerly_sheets SET c = 'red'");
  await(queries.save({"s", "o", "Two", "{}", present, present}));
  EXPECT_EQ(inFile("SELECT title, c FROM ledgerly_sheets"), "Two|red");
  EXPECT_EQ(inFile(applied), allNine + " ledgerly_v9");
}

TEST_F(StoreMigrations, OldIdsAreBroughtIntoForm) {
  const std::string table =
      " (id TEXT PRIMARY KEY NOT NULL, owner_id TEXT NOT NULL, title TEXT NOT NULL, data TEXT NOT NULL, "
      "created_at DATETIME NOT NULL, updated_at DATETIME NOT NULL, synced_at DATETIME";
  inFile(
      "CREATE TABLE grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY);"
      "INSERT INTO grdb_migrations VALUES ('ledgerly_v1'), ('sceneward_v1'), ('sceneward_v2_remote_version');"
      "CREATE TABLE ledgerly_sheets" +
      table + ");CREATE TABLE sceneward_projects" + table + ", remote_version INTEGER)");
  inFile(
      "INSERT INTO ledgerly_sheets SELECT value, 'o', 't', '{}', '', '', NULL "
      "FROM json_each('[\"123\",\"12a\",\"\",\"-4\",\"007\"]')");
  const std::string upper = "AAAAAAAA-0000-4000-8000-00000000000",
                    lower = "aaaaaaaa-0000-4000-8000-00000000000";
  const std::pair<std::string, std::string> projects[] = {
      {upper + "1", "longest"}, {lower + "1", "short"},  // the longer copy wins
      {lower + "2", "same"},    {upper + "2", "size"},  // the first, in the order of the ids, on equal length
      {upper + "3", "alone"},   {"Scene A", "as it is"},
  };
  for (const auto& [id, data] : projects)
    inFile("INSERT INTO sceneward_projects VALUES ('" + id + "','o','t','" + data + "','','',NULL,NULL)");
  open();
  EXPECT_EQ(inFile("SELECT id, remote_id FROM ledgerly_sheets ORDER BY rowid"),
            "123|123 12a|- |- -4|- 007|7");
  EXPECT_EQ(inFile("SELECT id, data FROM sceneward_projects ORDER BY id"),
            "Scene A|as it is " + lower + "1|longest " + lower + "2|size " + lower + "3|alone");
}

}  // namespace
}  // namespace vorlane
