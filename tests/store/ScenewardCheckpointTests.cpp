#include "StoreFixture.h"

#include "base/Digest.h"
#include "base/Json.h"
#include "store/ScenewardCheckpointQueue.h"
#include "store/ScenewardTombstones.h"

#include <fmt/format.h>

#include <limits>
#include <sstream>
#include <thread>

namespace vorlane {
namespace {

using Request = ScenewardCheckpointRequest;
using QueueError = Request::QueueError;
using ::testing::EndsWith;
using ::testing::Not;
using ::testing::StartsWith;

std::string uuid(int number) {
  return fmt::format("aaaaaaaa-0000-4000-8000-{:012}", number);
}
const std::string project = uuid(900), otherProject = uuid(901), checkpointID = uuid(800);
const std::string contentHash(64, 'c');

JSONMap document(int operation, const std::string& projectID = project) {
  return {{"operationId", uuid(operation)},
          {"expectedRevision", 3},
          {"checkpoint",
           {{"schemaVersion", 1},
            {"id", checkpointID},
            {"projectDocument", {{"id", projectID}, {"scenes", {JSONMap(), JSONMap{{"id", 5}}}}}},
            {"contentHash", contentHash},
            {"assets",
             {JSONMap{{"kind", "project-archive"},
                      {"id", "project-archive"},
                      {"data", "YWJj"},
                      {"bytes", 3},
                      {"sha256", sha256Hex("abc")}}}}}}};
}
std::string payload(int operation, const std::string& projectID = project) {
  return writeJSON(document(operation, projectID));
}
std::string upperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(c));
  return text;
}

/// What became of a call: nothing when it succeeded, the case of a QueueError, or the
/// description of another failure.
std::string outcome(const std::invocable auto& call) {
  try {
    call();
    return "";
  } catch (const QueueError& error) {
    EXPECT_THAT(error.description(), StartsWith(std::string(error.caseName()) + ": "));
    return std::string(error.caseName());
  } catch (const std::exception& error) {
    return describe(error);
  }
}

TEST(CheckpointRequest, TakesEachPlaceOfThePayloadOnlyAsItMustBe) {
  std::istringstream places(
      "/operationId /expectedRevision /checkpoint /checkpoint/schemaVersion /checkpoint/id "
      "/checkpoint/contentHash /checkpoint/projectDocument /checkpoint/projectDocument/id "
      "/checkpoint/projectDocument/scenes /checkpoint/assets /checkpoint/assets/0/kind "
      "/checkpoint/assets/0/id /checkpoint/assets/0/data /checkpoint/assets/0/bytes "
      "/checkpoint/assets/0/sha256");
  auto values = parseJSON(R"([null,true,0,1,2,4,-1,1.0,3.0,1e0,{},[],[{}],[1],[{},null],9223372036854775808,
    "","1","YWI=","YWJj\n","YWJ","AAAAAAAA-0000-4000-8000-000000000007"])");
  values.as_array().emplace_back(upperCase(contentHash));
  values.as_array().emplace_back(contentHash + "c");
  const std::string good =
      R"( /expectedRevision=0 /expectedRevision=1 /expectedRevision=2 /expectedRevision=4 )"
      R"(/checkpoint/schemaVersion=1 /checkpoint/projectDocument/scenes=[] )"
      R"(/checkpoint/projectDocument/scenes=[{}] /operationId="AAAAAAAA-0000-4000-8000-000000000007" )"
      R"(/checkpoint/id="AAAAAAAA-0000-4000-8000-000000000007" )";
  for (std::string place; places >> place;) {
    const auto slash = place.rfind('/');
    const auto key = place.substr(slash + 1);
    // The place itself, or one inside of it that the edit left without its value.
    auto refusal = "invalidRequest: " + place.substr(1);
    if (const auto first = refusal.find("/0"); first != std::string::npos) refusal.replace(first, 2, "[0]");
    std::ranges::replace(refusal, '/', '.');
    if (key == "data") refusal.resize(refusal.size() - 4);  // other data has another length or digest
    JSONValue edited = document(1);
    auto& parent = (slash == 0 ? edited : edited.at_pointer(place.substr(0, slash))).as_object();
    const auto result = [&] { return failureOf([&] { Request::build("o", project, writeJSON(edited)); }); };
    for (const auto& value : values.as_array()) {
      parent[key] = value;
      const auto edit = fmt::format(" {}={} ", place, writeJSON(value));
      if (good.contains(edit)) {
        EXPECT_EQ(result(), "nothing") << edit;
      } else {
        EXPECT_THAT(result(), StartsWith(refusal)) << edit;
      }
    }
    parent.erase(key);
    EXPECT_THAT(result(), StartsWith(refusal)) << place;
  }
}

TEST(CheckpointRequest, ReadsTheTextAsAnyReaderOfTheTreeWould) {
  struct Case {
    std::string from, to;
    const char* outcome;
  };
  const std::string extra = R"({"operationId":5,"checkpoint":{"assets":[1,2]},"k\u006b":[[{"data":"!"}]]})";
  const Case cases[] = {
      {"{", " \n{", ""},
      {R"("operationId":)", R"("operationId":"x","operationId":)", ""},
      {R"("operationId":)", R"("oper\u0061tionId":)", ""},
      {R"("operationId":)", R"("operationID":)", "invalidRequest"},
      {R"("operationId":)", R"("operationId\u0000":)", "invalidRequest"},
      {R"("checkpoint":)", R"("checkpoint":7,"checkpoint":)", ""},
      {R"("expectedRevision")", R"("checkpoint":[],"expectedRevision")", "invalidRequest"},
      {R"("expectedRevision")", R"("checkpoint":{"schemaVersion":1},"expectedRevision")", "invalidRequest"},
      {R"("schemaVersion")", R"("projectDocument":{"id":")" + project + R"("},"schemaVersion")",
       "invalidRequest"},
      {R"("expectedRevision")", R"("other":)" + extra + R"(,"expectedRevision")", ""},
      {R"("contentHash")", R"("other":)" + extra + R"(,"contentHash")", ""},
      {R"("assets":[)", R"("assets":[{},{}],"assets":[)", ""},
      {R"("assets":[)", R"("assets":[{},)", "invalidRequest"},
      {R"("assets":[)", R"("assets":[[],)", "invalidRequest"},
      {R"(}],"contentHash")", R"(},1],"contentHash")", "invalidRequest"},
      {R"(}],"contentHash")", R"(},{"bytes":9,"data":"!"}],"contentHash")", "invalidRequest"},
      {R"(}],"contentHash")", R"(,"other":{"data":"!","bytes":9}}],"contentHash")", ""},
      {R"("bytes":3)", R"("bytes":9,"bytes":3)", ""},
      {R"("bytes":3)", R"("bytes":3,"bytes":2)", "invalidRequest"},
      {R"("data":"YWJj")", R"("data":"!!","data":"YW\u004aj")", ""},
      {R"("data":"YWJj")", R"("data":"YWJj","data":{})", "invalidRequest"},
      {R"("data":"YWJj")", R"("data":"YWJk")", "invalidRequest"},
      {R"("data":"YWJj")", R"("data":"YWJj====")", "invalidRequest"},
      {R"("data":"YWJj")", R"("data":"YW\nJj")", "invalidRequest"},
      {R"("scenes":[)", R"("scenes":[[],)", "invalidRequest"},
      {R"("scenes":[)", R"("scenes":[1],"scenes":[)", ""},
      {project, upperCase(project), ""},
      {project, otherProject, "invalidRequest"},
  };
  for (const auto& [from, to, expected] : cases) {
    auto text = payload(1);
    text.replace(text.find(from), from.size(), to);
    EXPECT_EQ(outcome([&] { Request::build("o", upperCase(project), text); }), expected) << text;
    EXPECT_TRUE(parseJSON(text).is_object());
  }
  const std::string tooDeep = std::string(513, '[') + std::string(513, ']');
  for (const std::string& text :
       {std::string(), std::string("{"), std::string("5"), payload(1) + "x", R"({"a":"\ud800"})" + payload(1),
        std::string(R"({"a":"\ud800"})"), std::string("{\"\xff\":1}"), std::string("[1e999]"), tooDeep,
        std::string("[1,]")}) {
    EXPECT_EQ(failureOf([&] { Request::build("o", project, text); }), failureOf([&] { parseJSON(text); }));
    EXPECT_NE(failureOf([&] { parseJSON(text); }), "nothing") << text;
  }
  EXPECT_EQ(outcome([] { Request::build("o", project, "[]"); }), "invalidRequest");
  EXPECT_EQ(outcome([] { Request::build("", project, payload(1)); }), "invalidRequest");
  EXPECT_EQ(outcome([] { Request::build("o", "project", payload(1)); }), "invalidRequest");
  // More than one slice of the decoder, in parts that end within a group.
  std::string bytes(100'001, 'x'), escaped;
  for (int i = 0; const char c : base64Encoded(bytes)) {
    escaped += ++i % 997 == 0 ? fmt::format("\\u{:04x}", int(c)) : std::string(1, c);
  }
  auto large = document(1);
  auto& asset = large["checkpoint"].at("assets").at(0).as_object();
  asset["bytes"] = bytes.size();
  asset["sha256"] = sha256Hex(bytes);
  auto text = writeJSON(large);
  text.replace(text.find("YWJj"), 4, escaped);
  EXPECT_EQ(outcome([&] { Request::build("o", project, text); }), "");
}

TEST(CheckpointRequest, TakesOnlyTheReceiptOfItsOwnCheckpointAndNextRevision) {
  const auto request = Request::build("o", project, payload(1));
  const JSONMap receipt{{"checkpointId", upperCase(checkpointID)},
                        {"contentHash", contentHash},
                        {"committedManifestRevision", 4},
                        {"committedAt", "2026-03-01T12:00:00Z"}};
  struct Case {
    const char* key;
    JSONValue value;
    const char* outcome;
  };
  const Case cases[] = {{"more", true, ""},
                        {"committedAt", "2026-03-01T12:00:00.123+01:00", ""},
                        {"committedAt", "2026-03-01 12:00:00.123", "invalidReceipt"},
                        {"committedAt", 5, "invalidReceipt"},
                        {"checkpointId", JSONValue(uuid(1)), "invalidReceipt"},
                        {"checkpointId", nullptr, "invalidReceipt"},
                        {"contentHash", JSONValue(upperCase(contentHash)), "invalidReceipt"},
                        {"committedManifestRevision", 3, "invalidReceipt"},
                        {"committedManifestRevision", 5, "invalidReceipt"},
                        {"committedManifestRevision", 4.0, "invalidReceipt"},
                        {"committedManifestRevision", true, "invalidReceipt"},
                        {"committedManifestRevision", "4", "invalidReceipt"}};
  for (const auto& [key, value, expected] : cases) {
    auto changed = receipt;
    changed[key] = value;
    const auto text = writeJSON(changed);
    EXPECT_EQ(outcome([&] { EXPECT_EQ(request.validateReceipt(text), 4); }), expected) << text;
    changed.erase(key);
    if (key != std::string_view("more")) {
      EXPECT_EQ(outcome([&] { request.validateReceipt(writeJSON(changed)); }), "invalidReceipt") << key;
    }
  }
  EXPECT_EQ(outcome([&] { request.validateReceipt("[]"); }), "invalidReceipt");
  EXPECT_EQ(outcome([&] { request.validateReceipt("<html>"); }), failureOf([] { parseJSON("<html>"); }));
  auto last = request;
  last.expectedRevision = std::numeric_limits<std::int64_t>::max();
  EXPECT_DEATH(last.validateReceipt(writeJSON(receipt)), "no revision follows");
}

class CheckpointQueue : public StoreTest {
 protected:
  std::string enqueue(std::string text, const std::string& owner = "o", const std::string& of = project) {
    return outcome([&] { await(queue.enqueue(owner, of, std::move(text))); });
  }
  std::string enqueue(int operation, const std::string& owner = "o", const std::string& of = project) {
    return enqueue(payload(operation, of), owner, of);
  }
  std::string cancel(std::vector<std::string> operations, const std::string& of = project) {
    return outcome([&] { await(queue.cancelProject("o", of, std::move(operations))); });
  }
  std::string acknowledge(const Request& request) {
    const JSONMap receipt{{"checkpointId", request.checkpointID},
                          {"contentHash", request.contentHash},
                          {"committedManifestRevision", request.expectedRevision + 1},
                          {"committedAt", "2026-03-01T12:00:00Z"}};
    return outcome([&] { await(queue.acknowledge(request, writeJSON(receipt))); });
  }
  /// The last three digits of the operation that waits first, "none", or the failure.
  std::string head(const std::string& owner = "o") {
    std::string head = "none";
    const auto failure = outcome([&] {
      const auto requests = queue.pending(owner);
      if (!requests.empty()) head = requests.front().operationID.substr(33);
    });
    return failure.empty() ? head : failure;
  }
  std::string rows() {
    return inFile("SELECT substr(operation_id, 34), status FROM sceneward_checkpoint_queue ORDER BY 1");
  }

  ScenewardCheckpointQueue queue{open(), [this] { return present; }};
};

TEST_F(CheckpointQueue, KeepsASaveOnceAndUnchangedAndTakesNoOtherUnderItsOperation) {
  auto text = payload(1);
  for (const auto& id : {uuid(1), checkpointID, project}) text.replace(text.find(id), 36, upperCase(id));
  const auto returned = await(queue.enqueue("o", upperCase(project), text));
  EXPECT_EQ(returned.payload, "");
  EXPECT_EQ(enqueue(text), "");
  EXPECT_EQ(inFile("SELECT operation_id, owner_id, project_id, CAST(payload AS TEXT), typeof(payload), "
                   "payload_hash, status, receipt, created_at FROM sceneward_checkpoint_queue"),
            fmt::format("{}|o|{}|{}|blob|{}|pending|-|2026-03-01 12:00:00.000", uuid(1), project, text,
                        sha256Hex(text)));
  const auto kept = queue.pending("o").at(0);
  EXPECT_EQ(std::tie(kept.operationID, kept.ownerID, kept.projectID, kept.checkpointID, kept.contentHash),
            std::tuple(uuid(1), "o", project, checkpointID, contentHash));
  EXPECT_EQ(std::tie(kept.expectedRevision, kept.payload, kept.payloadHash),
            std::tuple(3, text, Request::digest(text)));
  for (const char* status : {"pending", "acknowledged"}) {
    EXPECT_EQ(enqueue(payload(1)), "conflictingOperation") << status;  // only letter case differs
    EXPECT_EQ(enqueue(text + " "), "conflictingOperation") << status;
    EXPECT_EQ(enqueue(text), "") << status;
    EXPECT_EQ(rows(), std::string("001|") + status);
    acknowledge(kept);
  }
  EXPECT_THAT(
      inFile(
          "SELECT CAST(receipt AS TEXT), typeof(receipt), length(payload) FROM sceneward_checkpoint_queue"),
      EndsWith(fmt::format("}}|blob|{}", text.size())));
  EXPECT_EQ(enqueue(1, "p"), "");  // another owner's operation is another one
}

TEST_F(CheckpointQueue, KeepsTheOrderInWhichSavesCameWhateverTheClockSays) {
  for (const int operation : {5, 3, 4}) EXPECT_EQ(enqueue(operation), "");
  present -= std::chrono::hours(1);
  EXPECT_EQ(enqueue(1), "");
  EXPECT_EQ(enqueue(9, "p"), "");
  present += std::chrono::hours(2);
  EXPECT_EQ(enqueue(2), "");
  std::string times;
  for (const auto& entry : queue.entries("o")) {
    times += entry.operationID.back();
    times += entry.createdAt.substr(10) + entry.status[0] + std::to_string(entry.bytes);
  }
  const auto size = std::to_string(payload(1).size());
  EXPECT_EQ(times, fmt::format("5 12:00:00.000p{0}3 12:00:00.001p{0}4 12:00:00.002p{0}1 12:00:00.003p{0}"
                               "2 13:00:00.000p{0}",
                               size));
  std::string order;
  for (auto next = queue.pending("o"); !next.empty(); next = queue.pending("o")) {
    order += next[0].operationID.back();
    next[0].payload.clear();
    if (order.size() % 2 == 1) {
      EXPECT_EQ(acknowledge(next[0]), "");
    } else {
      await(queue.block(next[0]));
    }
  }
  EXPECT_EQ(order, "53412");
  const auto counts = queue.counts("o");
  EXPECT_EQ(std::pair(counts.pending, counts.blocked), std::pair(std::int64_t{0}, std::int64_t{2}));
  EXPECT_EQ(queue.counts("p").pending, 1);
  Request acknowledged{.operationID = uuid(5), .ownerID = "o"};
  await(queue.block(acknowledged));
  EXPECT_EQ(rows(), "001|blocked 002|acknowledged 003|blocked 004|acknowledged 005|acknowledged 009|pending");
}

TEST_F(CheckpointQueue, ReadsItsListsFromTheIndexAndSortsNoPayload) {
  const std::pair<const char*, const char*> plans[] = {
      {"SELECT * FROM sceneward_checkpoint_queue WHERE owner_id='o' AND status='pending' ORDER BY created_at",
       "USING INDEX idx_sceneward_checkpoint_pending (owner_id=? AND status=?)"},
      {"SELECT max(created_at) FROM sceneward_checkpoint_queue WHERE owner_id='o'",
       "USING COVERING INDEX idx_sceneward_checkpoint_pending (owner_id=?)"},
      {"SELECT COUNT(*) FROM sceneward_checkpoint_queue WHERE owner_id='o' AND status='blocked'",
       "USING COVERING INDEX idx_sceneward_checkpoint_pending (owner_id=? AND status=?)"},
      {"SELECT operation_id, project_id, status, length(payload), created_at FROM "
       "sceneward_checkpoint_queue WHERE owner_id='o' AND status>='' ORDER BY created_at",
       "USING INDEX idx_sceneward_checkpoint_pending (owner_id=? AND status>?)"}};
  for (const auto& [sql, plan] : plans) {
    EXPECT_THAT(inFile(std::string("EXPLAIN QUERY PLAN ") + sql), HasSubstr(plan)) << sql;
  }
  EXPECT_THAT(inFile(std::string("EXPLAIN QUERY PLAN ") + plans[0].first), Not(HasSubstr("TEMP B-TREE")));
}

TEST_F(CheckpointQueue, TakesAPayloadOf64MiBAndNoByteMore) {
  auto text = payload(1);
  text.resize(Request::maximumPayload, ' ');
  EXPECT_EQ(enqueue(text), "");
  const auto kept = queue.pending("o");
  EXPECT_TRUE(kept.at(0).payload == text);
  text += ' ';
  EXPECT_EQ(enqueue(std::move(text)), "invalidRequest");
}

TEST_F(CheckpointQueue, HoldsUpToOneGibibyteOfAnOwnerAcknowledgedSavesIncluded) {
  const auto size = static_cast<std::int64_t>(payload(1).size());
  // In the table's place rows whose payloads are as large as they say without being there.
  inFile(
      "DROP TABLE sceneward_checkpoint_queue;"
      "CREATE TABLE sizes(operation_id, owner_id, payload_hash, status, size);"
      "CREATE VIEW sceneward_checkpoint_queue AS SELECT operation_id, owner_id, payload_hash, status, "
      "zeroblob(size) AS payload, '' AS project_id, '' AS created_at FROM sizes;"
      "CREATE TRIGGER t INSTEAD OF INSERT ON sceneward_checkpoint_queue BEGIN INSERT INTO sizes VALUES "
      "(new.operation_id, new.owner_id, new.payload_hash, 'pending', length(new.payload)); END");
  const auto room = ScenewardCheckpointQueue::quota - 900'000'000 - size;
  const auto store = [&](const char* owner, std::int64_t bytes) {
    inFile(
        fmt::format("INSERT INTO sizes VALUES ('', '{0}', '', 'acknowledged', 900000000), ('', '{0}', '', "
                    "'blocked', {1})",
                    owner, bytes));
  };
  store("o", room);
  store("p", room + 1);
  EXPECT_EQ(enqueue(1, "p"), "storageQuota");
  EXPECT_EQ(enqueue(1), "");
  EXPECT_EQ(enqueue(1), "");  // a repeat needs no room
  EXPECT_EQ(enqueue(2), "storageQuota");
  EXPECT_EQ(inFile("SELECT owner_id, size FROM sizes WHERE status = 'pending'"), fmt::format("o|{}", size));
}

TEST_F(CheckpointQueue, NeverRevivesWhatWasCancelledOrErased) {
  EXPECT_EQ(enqueue(1), "");
  EXPECT_EQ(enqueue(2), "");
  EXPECT_EQ(enqueue(3, "o", otherProject), "");
  EXPECT_EQ(enqueue(4, "p"), "");
  const auto first = queue.pending("o").at(0);
  EXPECT_EQ(acknowledge(first), "");
  EXPECT_FALSE(queue.isProjectCancelled("o", project));
  EXPECT_EQ(cancel({upperCase(uuid(7)), uuid(7)}, upperCase(project)), "");
  EXPECT_TRUE(queue.isProjectCancelled("o", upperCase(project)));
  EXPECT_FALSE(queue.isProjectCancelled("p", project));
  EXPECT_EQ(rows(), "003|pending 004|pending");
  EXPECT_EQ(acknowledge(first), "invalidRequest");
  EXPECT_EQ(enqueue(5), "invalidRequest");  // its project is cancelled, it is not
  await(queue.restoreProject("o", upperCase(project)));
  const std::pair<int, const char*> afterRestoring[] = {
      {1, "invalidRequest"}, {2, "invalidRequest"}, {7, "invalidRequest"}, {5, ""}};
  for (const auto& [operation, expected] : afterRestoring) EXPECT_EQ(enqueue(operation), expected);
  EXPECT_EQ(enqueue(7, "o", otherProject), "invalidRequest");  // a named one, whichever its project
  EXPECT_EQ(enqueue(7, "p"), "");
  EXPECT_EQ(inFile("SELECT restored_at FROM sceneward_cancelled_projects"), "2026-03-01 12:00:00.000");
  EXPECT_EQ(cancel({}), "");
  EXPECT_EQ(inFile("SELECT owner_hash, restored_at FROM sceneward_cancelled_projects"),
            sha256Hex("o") + "|-");
  EXPECT_EQ(inFile("SELECT substr(operation_id, 34) FROM sceneward_cancelled_operations ORDER BY 1"),
            "001 002 005 007");

  await(queue.restoreProject("o", project));
  await(queue.erase("o"));
  present += std::chrono::hours(1);
  await(queue.erase("o"));
  EXPECT_EQ(inFile("SELECT * FROM sceneward_checkpoint_deleted_owners"),
            sha256Hex("o") + "|2026-03-01 12:00:00.000");
  EXPECT_EQ(rows(), "004|pending 007|pending");
  EXPECT_EQ(enqueue(8), "invalidRequest");
  EXPECT_EQ(acknowledge(first), "invalidRequest");
  EXPECT_EQ(outcome([&] { await(queue.restoreProject("o", project)); }), "invalidRequest");
  EXPECT_TRUE(queue.isProjectCancelled("o", otherProject));
  EXPECT_EQ(head("p"), "004");
  // Of an erased owner nothing is read, not even what somebody else has put there.
  inFile("UPDATE sceneward_checkpoint_queue SET owner_id='o'");
  EXPECT_EQ(head(), "none");
}

TEST_F(CheckpointQueue, CancelsAHundredNamedOperationsOrNone) {
  std::vector<std::string> names;
  for (int i = 1; i <= 100; ++i) names.push_back(uuid(i));
  EXPECT_EQ(enqueue(1), "");
  auto malformed = names;
  malformed.back() += "0";
  auto tooMany = names;
  tooMany.push_back(uuid(101));
  for (const auto& refused : {malformed, tooMany}) {
    EXPECT_EQ(cancel(refused), "invalidRequest");
    EXPECT_FALSE(queue.isProjectCancelled("o", project));
    EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_cancelled_operations"), "0");
  }
  EXPECT_EQ(rows(), "001|pending");
  EXPECT_EQ(cancel(names), "");
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_cancelled_operations"), "100");
}

TEST_F(CheckpointQueue, ADamagedSaveStopsTheReadAndACancelledOneIsPassedOver) {
  const std::string of1 = " WHERE operation_id='" + uuid(1) + "' AND owner_id='o'";
  const std::pair<std::string, std::string> damages[] = {
      {"payload=CAST(replace(CAST(payload AS TEXT), 'YWJj', 'YWJk') AS BLOB)", "invalidRequest"},
      {"payload=zeroblob(0)", "invalidRequest"},
      {"payload_hash=upper(payload_hash)", "invalidRequest"},
      {"project_id='" + otherProject + "'", "invalidRequest"},
      {"operation_id='" + uuid(7) + "'", "invalidRequest"},
      {"payload=CAST('{' AS BLOB), payload_hash='" + sha256Hex("{") + "'", failureOf([] { parseJSON("{"); })},
      {"status='blocked'", "000"},
  };
  for (const auto& [damage, expected] : damages) {
    inFile("DELETE FROM sceneward_checkpoint_queue");
    // The damaged one is the second: that the first is sound does not save the read.
    for (const int operation : {0, 1, 2}) EXPECT_EQ(enqueue(operation), "");
    EXPECT_EQ(enqueue(1, "p"), "");
    inFile("UPDATE sceneward_checkpoint_queue SET " + damage + of1);
    EXPECT_EQ(head(), expected) << damage;
    EXPECT_EQ(head("p"), "001");
  }
  inFile("INSERT INTO sceneward_cancelled_operations VALUES ('" + sha256Hex("o") + "', '" + uuid(0) + "')");
  EXPECT_EQ(head(), "002");
  inFile("INSERT INTO sceneward_cancelled_projects VALUES ('" + sha256Hex("o") + "', '" + project +
         "', NULL)");
  EXPECT_EQ(head(), "none");
}

TEST_F(CheckpointQueue, OfACancellationAndASaveInTwoProgramsTheCancellationWins) {
  const ScenewardCheckpointQueue elsewhere(open());
  int operation = 0;
  for (int round = 0; round < 10; ++round) {
    const auto of = uuid(1000 + round);
    int saved = 0;
    std::string end;
    std::promise<void> underWay;
    std::thread saver([&] {
      while (end.empty()) {
        end = enqueue(++operation, "o", of);
        if (end.empty() && ++saved == 3) underWay.set_value();
      }
      if (saved < 3) underWay.set_value();
    });
    underWay.get_future().wait();
    await(elsewhere.cancelProject("o", of, {}));
    saver.join();
    EXPECT_EQ(end, "invalidRequest");
    EXPECT_EQ(head(), "none");
    EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_checkpoint_queue"), "0");
    EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_cancelled_operations"), std::to_string(saved));
    inFile("DELETE FROM sceneward_cancelled_operations");
  }
}

}  // namespace
}  // namespace vorlane
