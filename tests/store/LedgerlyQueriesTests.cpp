#include "StoreFixture.h"

namespace vorlane {
namespace {

class LedgerlyStore : public StoreTest {
 protected:
  void save(LedgerlySheetRow row) {
    await(queries.save(std::move(row)));
    newSignals();
  }
  LedgerlySheetRow row(const std::string& id) { return queries.fetch(id).value(); }
  std::string pending() {
    std::string ids, rows;
    for (const auto& id : queries.pendingIDs("o")) ids += id + ";";
    for (const auto& row : queries.pendingPush("o")) rows += row.id + ";";
    EXPECT_EQ(ids, rows);
    return ids + std::to_string(queries.counts("o").pending);
  }
  Date at(int milliseconds) const { return noon + std::chrono::milliseconds(milliseconds); }

  const Date noon = present;
  LedgerlyQueries queries = queriesOn(open());
};

TEST_F(LedgerlyStore, RowsComeBackWholeAndAreFoundByIdOrCloudNumber) {
  save({"ABC", "o", "T", "{}", at(0), at(1), at(2), 123, at(3)});
  save(row("ABC"));
  EXPECT_EQ(inFile("SELECT * FROM ledgerly_sheets"),
            "ABC|o|T|{}|2026-03-01 12:00:00.000|2026-03-01 12:00:00.001|2026-03-01 12:00:00.002|123|"
            "2026-03-01 12:00:00.003");
  EXPECT_FALSE(queries.fetch("123"));
  EXPECT_EQ(queries.fetchResolving("123").value().id, "ABC");
  EXPECT_FALSE(queries.fetchResolving("12x"));
  EXPECT_FALSE(queries.fetchResolving("99999999999999999999"));
  save({"123", "o", "T", "{}", at(0), at(9)});  // the key goes before the cloud's number
  EXPECT_EQ(queries.fetchResolving("123").value().id, "123");

  save({"foreign", "other", "T", "{}", at(0), at(0)});
  inFile("UPDATE ledgerly_sheets SET title = CAST(x'41ff' AS TEXT) WHERE id = 'ABC'");
  std::string listed;
  for (const auto& row : queries.listSheets("o")) listed += row.id + " " + row.title + " ";
  for (const auto& meta : queries.listMeta("o")) listed += meta.id + " " + meta.title + " ";
  EXPECT_EQ(listed, "123 T ABC A\xEF\xBF\xBD 123 T ABC A\xEF\xBF\xBD ");  // the latest edit first
  inFile("UPDATE ledgerly_sheets SET updated_at = 'soon' WHERE id = 'ABC'");
  EXPECT_THAT(failureOf([&] { queries.listSheets("o"); }), HasSubstr("column updated_at"));
}

TEST_F(LedgerlyStore, TheQueueHoldsWhatTheCloudLacksOldestFirst) {
  // The last three: when it was edited, when the cloud agreed and when it refused.
  const LedgerlySheetRow rows[] = {
      {"never pushed", "o", "T", "{}", at(0), at(60)},
      {"clean", "o", "T", "{}", at(0), at(50), at(50)},
      {"synced later", "o", "T", "{}", at(0), at(40), at(41)},
      {"dirty by a tick", "o", "T", "{}", at(0), at(30), at(29)},
      {"blocked at the edit", "o", "T", "{}", at(0), at(20), at(19), {}, at(20)},
      {"blocked, never pushed", "o", "T", "{}", at(0), at(15), {}, {}, at(16)},
      {"edited since blocked", "o", "T", "{}", at(0), at(10), at(8), {}, at(9)},
  };
  for (const auto& row : rows) save(row);
  const std::string expected = "edited since blocked;dirty by a tick;never pushed;";
  EXPECT_EQ(pending(), expected + "3");
  // Dates are compared, and not their texts: other programs write shorter forms.
  inFile(
      "UPDATE ledgerly_sheets SET synced_at = '2026-03-01 12:00', updated_at = '2026-03-01 12:00:00.000' "
      "WHERE id = 'clean'; UPDATE ledgerly_sheets SET updated_at = '2026-03-01 12:00:00', "
      "synced_at = NULL, push_blocked_at = '2026-03-01 12:00:00.000' WHERE id = 'blocked at the edit'");
  EXPECT_EQ(pending(), expected + "3");
  EXPECT_EQ(queries.counts("o").blocked, 2);
  // A date that nobody can read is told by the push of its own row and stops no other one.
  inFile("UPDATE ledgerly_sheets SET synced_at = 'soon' WHERE id = 'clean'");
  EXPECT_EQ(queries.pendingIDs("o").size(), 4U);
  EXPECT_EQ(queries.counts("o").pending, 4);
}

TEST_F(LedgerlyStore, MarksTouchTheirOwnColumnsAlone) {
  save({"s", "o", "T", "{}", at(0), at(0)});
  present = at(5);
  await(queries.mutateDocument("s", [](JSONMap& document) { document["edited"] = 5; }));
  EXPECT_EQ(newSignals(), 1);
  struct Step {
    std::function<Task<>()> mark;
    int signals;
    const char *row, *pending;
  };
  const Step steps[] = {
      {[&] { return queries.markPushBlocked("s", at(0)); }, 0, R"({"edited":5}|-|.005|.000)", "s;1"},
      {[&] { return queries.markPushed("s", 77, at(0)); }, 1, R"({"edited":5}|77|.005|-)", "s;1"},
      {[&] { return queries.markPushed("s", 77, at(5)); }, 1, R"({"edited":5}|77|.005|-)", "0"},
      {[&] { return queries.deleteSheet("s"); }, 1, "", "0"},
      {[&] { return queries.markPushed("s", 77, at(5)); }, 0, "", "0"},
      {[&] { return queries.deleteSheet("s"); }, 0, "", "0"},
  };
  const std::string columns = "SELECT data, remote_id, substr(updated_at, 20), substr(push_blocked_at, 20)";
  for (const auto& [mark, changes, row, stillPending] : steps) {
    await(mark());
    EXPECT_EQ(newSignals(), changes);
    EXPECT_EQ(inFile(columns + " FROM ledgerly_sheets"), row);
    EXPECT_EQ(pending(), stillPending);  // an edit outlasts a mark of what came before it
  }
}

TEST_F(LedgerlyStore, ARefusedEditWritesNothing) {
  const auto half = [](JSONMap& document) { document["half"] = "\xff"; };
  for (const auto& [data, failure] : {std::pair("[]", "snapshot is not a JSON object"),
                                      {"{", "invalid JSON"},
                                      {"{\"a\":\"\xff\"}", "invalid JSON"},
                                      {"{}", "UTF-8"}}) {
    save({"s", "o", "T", data, at(0), at(0)});
    EXPECT_THAT(failureOf([&] { await(queries.mutateDocument("s", half)); }), HasSubstr(failure));
    EXPECT_EQ(row("s").data, data);
    EXPECT_EQ(row("s").updatedAt, at(0));
  }
  EXPECT_EQ(newSignals(), 0);
}

TEST_F(LedgerlyStore, AListingWritesStubsAndRefreshesCleanRowsAlone) {
  const Date fine = at(-1000) - std::chrono::microseconds(567);  // finer than what is stored
  const auto stored = storageRounded(fine);
  save({"blocked", "o", "Cloud", "{\"a\":1}", at(0), stored, stored, 50, stored});
  save({"linked", "o", "T", "{\"a\":1}", at(0), at(0), at(0), 55});
  save({"dirty", "o", "T", "{\"a\":1}", at(0), at(1), at(0), 60});
  save({"never pushed", "o", "T", "{\"a\":1}", at(0), at(0)});
  // The listing's id, title and time, whether it changes anything, and the row afterwards.
  const std::tuple<const char*, const char*, Date, bool, const char*> cases[] = {
      {"123", "Cloud", fine, true, "123|Cloud|{}|123"},
      {"123", "Cloud", fine, false, "123|Cloud|{}|123"},
      {"local", "Other", at(999'999), true, "local|Other|{}|-"},
      {"50", "Cloud", fine, true, "blocked|Cloud|{\"a\":1}|50"},
      {"50", "Cloud", fine, false, "blocked|Cloud|{\"a\":1}|50"},  // the refusal was cleared
      {"55", "By number", at(0), true, "linked|By number|{\"a\":1}|55"},
      {"60", "Not over an edit", at(0), false, "dirty|T|{\"a\":1}|60"},
      {"never pushed", "Nor over this", at(0), false, "never pushed|T|{\"a\":1}|-"},
  };
  for (const auto& [id, title, time, changed, rowAfter] : cases) {
    EXPECT_EQ(await(queries.mergeRemoteMetadata(id, "o", title, time)), changed) << id;
    EXPECT_EQ(newSignals(), changed ? 1 : 0) << id;
    const auto found = queries.fetchResolving(id).value();
    EXPECT_EQ(inFile("SELECT id, title, data, remote_id FROM ledgerly_sheets WHERE id = '" + found.id + "'"),
              rowAfter);
    if (changed) EXPECT_FALSE(found.isDirty() || found.pushBlockedAt) << id;
  }
  EXPECT_EQ(row("local").updatedAt, present);  // the future counts as the present
  EXPECT_EQ(row("local").createdAt, present);
}

TEST_F(LedgerlyStore, TheServersCopyReplacesWhatWasNotEditedMeanwhile) {
  save({"s", "o", "T", "0", at(0), at(0), {}, 9, at(0)});
  // The copies are numbered. What is expected is the row's one, its two times and its refusal.
  const std::tuple<const char*, std::optional<Date>, Date, bool, const char*> cases[] = {
      {"unknown", at(0), at(5), false, "0|.000|-|.000"},
      {"s", {}, at(5), false, "0|.000|-|.000"},
      {"s", at(-1), at(5), false, "0|.000|-|.000"},
      // A clock that stands still or was set back lets no second answer pass for the first.
      {"9", at(0), at(0), true, "4|.001|.001|-"},
      {"s", at(0), at(0), false, "4|.001|.001|-"},
      {"s", at(1), at(-999), true, "6|.002|.002|-"},
      {"s", at(1), at(5), false, "6|.002|.002|-"},
      {"s", at(4), at(0), true, "8|.005|.005|-"},  // a listing took the row's time back meanwhile
      {"s", at(4), at(9), false, "8|.005|.005|-"},
      {"s", at(5), at(9), true, "10|.009|.009|-"},
  };
  for (int number = 0; const auto& [id, baseline, date, changed, rowAfter] : cases) {
    const auto copy = std::to_string(++number);
    EXPECT_EQ(await(queries.applyServerCopy(id, copy, baseline, date)), changed) << copy;
    EXPECT_EQ(newSignals(), changed ? 1 : 0) << copy;
    EXPECT_EQ(inFile("SELECT data, substr(updated_at, 20), substr(synced_at, 20), "
                     "substr(push_blocked_at, 20) FROM ledgerly_sheets"),
              rowAfter)
        << copy;
  }
}

}  // namespace
}  // namespace vorlane
