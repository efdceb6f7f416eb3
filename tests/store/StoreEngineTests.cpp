#include "StoreFixture.h"

namespace vorlane {
namespace {

TEST_F(StoreTest, AFailedWriteLeavesNothingAndTheNextOneWorks) {
  const auto store = open();
  const auto insert = [&](Database& db) {
    db.execute("INSERT INTO recents (user_id, app, entity_id, opened_at) VALUES ('u', 'l', ?, ?)",
               "secret-id", present);
  };
  const auto roll = [](Database& db) { db.execute("ROLLBACK"); };
  const std::pair<std::vector<std::function<void(Database&)>>, const char*> cases[] = {
      {{insert, [](Database&) { throw Failure("changed my mind"); }}, "changed my mind"},
      {{insert, insert}, "UNIQUE"},
      {{insert, roll}, "rolled back"},
      // Whoever goes on after the transaction was rolled back under it must not write bit by bit.
      {{roll, insert}, "already been rolled back"},
  };
  for (const auto& [steps, failure] : cases) {
    const auto work = [&](Database& db) {
      for (const auto& step : steps) step(db);
    };
    EXPECT_THAT(failureOf([&] { store->dbWriter().write(work); }),
                ::testing::AllOf(HasSubstr(failure), ::testing::Not(HasSubstr("secret-id"))));
    EXPECT_EQ(inFile("SELECT COUNT(*) FROM recents"), "0") << failure;
  }
  store->dbWriter().write(insert);
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM recents"), "1");
}

TEST_F(StoreTest, AReadSeesOneSnapshotAndCannotWrite) {
  const auto store = open();
  const auto count = [](Database& db) { return db.fetchCount("SELECT COUNT(*) FROM grdb_migrations"); };
  store->dbWriter().read([&](Database& db) {
    EXPECT_EQ(count(db), 9);
    inFile("INSERT INTO grdb_migrations VALUES ('x')");
    EXPECT_EQ(count(db), 9);
    EXPECT_EQ(store->dbWriter().read(count), 10);  // a newer snapshot, on another reader
    EXPECT_THAT(failureOf([&] { db.execute("DELETE FROM grdb_migrations"); }), HasSubstr("readonly"));
  });
  EXPECT_EQ(store->dbWriter().readOne(count), 10);
  const auto twice = [&](Database& db) { return count(db) + count(db); };
  EXPECT_THAT(failureOf([&] { store->dbWriter().readOne(twice); }), HasSubstr("one statement"));
}

TEST_F(StoreTest, TheLogIsMovedIntoTheFileBetweenWrites) {
  const auto queries = queriesOn(open());
  for (int i = 0; i < 20; ++i)
    await(
        queries.save({"s", "o", "T", std::string(1'000'000, static_cast<char>('a' + i)), present, present}));
  EXPECT_LT(std::filesystem::file_size(folder.database() + "-wal"), 8'000'000U);
}

}  // namespace
}  // namespace vorlane
