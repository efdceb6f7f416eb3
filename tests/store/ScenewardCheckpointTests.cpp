#include "StoreFixture.h"

#include "base/Encodings.h"
#include "base/JSON.h"
#include "base/SHA256.h"
#include "store/ScenewardCheckpointQueue.h"
#include "store/ScenewardTombstones.h"

#include <fmt/format.h>

#include <semaphore>
#include <thread>

namespace vorlane {
namespace {

using Request = ScenewardCheckpointRequest;
using QueueError = Request::QueueError;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::Not;
using ::testing::StartsWith;

std::string uuid(int number) {
  return fmt::format("aaaaaaaa-0000-4000-8000-{:012}", number);
}
const std::string project = uuid(900), otherProject = uuid(901), checkpointID = uuid(800);
const std::string contentHash(64, 'c');

std::string payload(int operation, const std::string& projectID = project) {
  return fmt::format(
      R"({{"checkpoint":{{"assets":[{{"bytes":3,"data":"YWJj","id":"project-archive","kind":"project-archive",)"
      R"("sha256":"{}"}}],"contentHash":"{}","id":"{}","projectDocument":{{"id":"{}","scenes":[{{}},)"
      R"({{"id":5}}]}},"schemaVersion":1}},"expectedRevision":3,"operationId":"{}"}})",
      sha256Hex("abc"), contentHash, checkpointID, projectID, uuid(operation));
}
std::string replaced(std::string text, std::string_view from, std::string_view to) {
  return text.replace(text.find(from), from.size(), to);
}
std::string upperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(c));
  return text;
}

/// What the cloud answers to a save.
JSONMap receiptOf(const Request& request) {
  return {{"checkpointId", upperCase(request.checkpointID)},
          {"contentHash", request.contentHash},
          {"committedManifestRevision", request.expectedRevision + 1},
          {"committedAt", "2026-03-01T12:00:00Z"}};
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

// Any other text is compared with a reader of its tree in fuzz/fuzz_checkpoint.cpp.
TEST(CheckpointRequest, IsReadInOnePassAndRefusedByTheNameOfItsFirstWrongPlace) {
  const std::string asset = "checkpoint.assets[0].", projectDocument = "checkpoint.projectDocument";
  // What is replaced in a sound payload, and the place that is refused; none when it is taken.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {R"(:3,"o)", R"(:0,"o)", ""},
      {R"("operationId":)", R"("operationId":"x","oper\u0061tionId":)", ""},
      {R"("operationId":)", R"("operationId\u0000":)", "operationId"},
      {R"(:3,"o)", R"(:-1,"o)", "expectedRevision"},
      {R"(:3,"o)", R"(:3.0,"o)", "expectedRevision"},
      {R"("expectedRevision")", R"("checkpoint":[],"expectedRevision")", "checkpoint"},
      {R"("schemaVersion":1)", R"("schemaVersion":true)", "checkpoint.schemaVersion"},
      {checkpointID, "x", "checkpoint.id"},
      {R"("projectDocument":{)", R"("projectDocument":[],"other":{)", projectDocument},
      {project, otherProject, projectDocument + ".id"},
      {R"("scenes":[)", R"("scenes":[[],)", projectDocument + ".scenes"},
      {"cc", "Cc", "checkpoint.contentHash"},
      {"ccc", "cc", "checkpoint.contentHash"},
      {R"(}],"contentHash")", R"(},{"bytes":9,"data":"!"}],"contentHash")", "checkpoint.assets"},
      {R"(}],"contentHash")", R"(,"other":{"data":"!","bytes":9}}],"contentHash")", ""},
      {R"("kind":"p)", R"("kind":"P)", asset + "kind"},
      {R"("id":"project-a)", R"("id":"a)", asset + "id"},
      {R"("YWJj")", R"("YWJj====")", asset + "data"},
      {R"("YWJj")", R"("YWJk")", asset + "sha256"},
      {R"("bytes":3)", R"("bytes":3,"bytes":2)", asset + "bytes"},
  };
  for (const auto& [from, to, place] : cases) {
    const auto text = replaced(payload(1), from, to);
    EXPECT_THAT(failureOf([&] { Request::build("o", upperCase(project), text); }),
                StartsWith(place.empty() ? "nothing" : "invalidRequest: " + place + " "))
        << text;
  }
  for (const auto& text : {std::string(), payload(1) + "x", std::string(513, '[') + std::string(513, ']')}) {
    EXPECT_EQ(failureOf([&] { Request::build("o", project, text); }), failureOf([&] { parseJSON(text); }));
  }
  for (const auto& [owner, of, text] :
       {std::tuple("o", project, std::string("[]")), {"", project, payload(1)}, {"o", "p", payload(1)}})
    EXPECT_EQ(outcome([&] { Request::build(owner, of, text); }), "invalidRequest");
}

TEST(CheckpointRequest, TakesOnlyTheReceiptOfItsOwnCheckpointAndNextRevision) {
  const auto request = Request::build("o", project, payload(1));
  const std::tuple<const char*, JSONValue, bool> cases[] = {
      {"more", true, true},
      {"committedAt", "2026-03-01T12:00:00.123+01:00", true},
      {"committedAt", "2026-03-01 12:00:00.123", false},
      {"contentHash", JSONValue(upperCase(contentHash)), false},
      {"committedManifestRevision", 5, false},
      {"committedManifestRevision", 4.0, false}};
  for (const auto& [key, value, good] : cases) {
    auto receipt = receiptOf(request);
    receipt[key] = value;
    const auto text = writeJSON(receipt);
    EXPECT_EQ(outcome([&] { EXPECT_EQ(request.validateReceipt(text), 4); }), good ? "" : "invalidReceipt")
        << text;
  }
  EXPECT_EQ(outcome([&] { request.validateReceipt("{}"); }), "invalidReceipt");
  EXPECT_EQ(outcome([&] { request.validateReceipt("<html>"); }), failureOf([] { parseJSON("<html>"); }));
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
    return outcome([&] { await(queue.acknowledge(request, writeJSON(receiptOf(request)))); });
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
  for (const auto& id : {uuid(1), checkpointID, project}) text = replaced(text, id, upperCase(id));
  const auto returned = await(queue.enqueue("o", upperCase(project), text));
  EXPECT_EQ(returned.payload, "");
  EXPECT_EQ(enqueue(text), "");
  EXPECT_EQ(inFile("SELECT operation_id, owner_id, project_id, CAST(payload AS TEXT), typeof(payload), "
                   "payload_hash, status, receipt, created_at FROM sceneward_checkpoint_queue"),
            fmt::format("{}|o|{}|{}|blob|{}|pending|-|2026-03-01 12:00:00.000", uuid(1), project, text,
                        sha256Hex(text)));
  const auto kept = queue.pending("o").at(0);
  EXPECT_EQ(
      std::tie(kept.operationID, kept.projectID, kept.checkpointID, kept.expectedRevision, kept.payload),
      std::tuple(uuid(1), project, checkpointID, 3, text));
  for (const char* status : {"pending", "acknowledged"}) {
    EXPECT_EQ(enqueue(payload(1)), "conflictingOperation") << status;  // only letter case differs
    EXPECT_EQ(enqueue(text + " "), "conflictingOperation") << status;
    EXPECT_EQ(enqueue(text), "") << status;
    EXPECT_EQ(rows(), std::string("001|") + status);
    acknowledge(kept);
  }
  EXPECT_THAT(inFile("SELECT CAST(receipt AS TEXT), typeof(receipt) FROM sceneward_checkpoint_queue"),
              EndsWith("}|blob"));
  EXPECT_EQ(enqueue(1, "p"), "");  // another owner's operation is another one
}

TEST_F(CheckpointQueue, KeepsTheOrderInWhichSavesCameWhateverTheClockSaysAndSortsNoPayload) {
  for (const int operation : {5, 3}) EXPECT_EQ(enqueue(operation), "");
  present -= std::chrono::hours(1);
  EXPECT_EQ(enqueue(1), "");
  EXPECT_EQ(enqueue(9, "p"), "");
  present += std::chrono::hours(2);
  EXPECT_EQ(enqueue(2), "");
  std::string entries;
  for (const auto& entry : queue.entries("o")) {
    EXPECT_EQ(entry.bytes, std::ssize(payload(1)));
    entries += entry.operationID.back() + entry.createdAt.substr(10) + entry.status[0] + " ";
  }
  EXPECT_EQ(entries, "5 12:00:00.000p 3 12:00:00.001p 1 12:00:00.002p 2 13:00:00.000p ");
  EXPECT_THAT(
      inFile("EXPLAIN QUERY PLAN SELECT operation_id FROM sceneward_checkpoint_queue WHERE owner_id='o' AND "
             "status='pending' ORDER BY created_at"),
      AllOf(HasSubstr("USING COVERING INDEX idx_sceneward_checkpoint_waiting (owner_id=? AND status=?)"),
            Not(HasSubstr("TEMP B-TREE"))));
  std::string order;
  ScenewardCheckpointQueue::Verified verified;
  for (int turn = 0; turn < 4; ++turn) {
    const auto next = queue.pending("o", verified).at(0);
    order += next.operationID.back();
    turn % 2 == 0 ? void(acknowledge(next)) : await(queue.block(next));
  }
  EXPECT_EQ(order, "5312");
  EXPECT_EQ(queue.counts("o").pending, 0);
  EXPECT_EQ(queue.counts("o").blocked, 2);
  EXPECT_EQ(queue.counts("p").pending, 1);
  await(queue.block(Request{.operationID = uuid(5), .ownerID = "o"}));  // too late
  EXPECT_EQ(rows(), "001|acknowledged 002|blocked 003|blocked 005|acknowledged 009|pending");
}

TEST_F(CheckpointQueue, TakesAPayloadOf64MiBAndNoByteMore) {
  // An asset of many slices of the decoder, in parts that end within a group.
  const std::string bytes(40'000'000, 'x');
  auto encoded = base64Encoded(bytes);
  for (std::size_t at = 997; at < 1'000'000; at += 997)
    encoded.replace(at, 1, fmt::format("\\u{:04x}", int(encoded[at])));
  auto text = replaced(payload(1), sha256Hex("abc"), sha256Hex(bytes));
  text = replaced(replaced(text, ":3,\"data", ":40000000,\"data"), "YWJj", encoded);
  text.resize(Request::maximumPayload, ' ');
  EXPECT_EQ(enqueue(text), "");
  EXPECT_TRUE(queue.pending("o").at(0).payload == text);
  EXPECT_EQ(enqueue(text + ' '), "invalidRequest");
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
  for (const auto& [owner, bytes] : {std::pair("o", room), {"p", room + 1}}) {
    inFile(
        fmt::format("INSERT INTO sizes VALUES ('', '{0}', '', 'acknowledged', 900000000), ('', '{0}', '', "
                    "'blocked', {1})",
                    owner, bytes));
  }
  EXPECT_EQ(enqueue(1, "p"), "storageQuota");
  EXPECT_EQ(enqueue(1), "");
  EXPECT_EQ(enqueue(1), "");  // a repeat needs no room
  EXPECT_EQ(enqueue(2), "storageQuota");
}

TEST_F(CheckpointQueue, NeverRevivesWhatWasCancelledOrErased) {
  for (const int operation : {1, 2}) EXPECT_EQ(enqueue(operation), "");
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
  for (const int operation : {1, 2, 7}) EXPECT_EQ(enqueue(operation), "invalidRequest");
  EXPECT_EQ(enqueue(5), "");
  EXPECT_EQ(enqueue(7, "o", otherProject), "invalidRequest");  // a named one, whichever its project
  EXPECT_EQ(enqueue(7, "p"), "");
  EXPECT_EQ(cancel({}), "");
  EXPECT_EQ(inFile("SELECT owner_hash, restored_at FROM sceneward_cancelled_projects"),
            sha256Hex("o") + "|-");
  EXPECT_EQ(inFile("SELECT substr(operation_id, 34) FROM sceneward_cancelled_operations ORDER BY 1"),
            "001 002 005 007");

  for (int again = 0; again < 2; ++again, present += std::chrono::hours(1)) await(queue.erase("o"));
  EXPECT_EQ(inFile("SELECT * FROM sceneward_checkpoint_deleted_owners"),
            sha256Hex("o") + "|2026-03-01 12:00:00.000");
  EXPECT_EQ(rows(), "004|pending 007|pending");
  EXPECT_EQ(enqueue(8), "invalidRequest");
  EXPECT_EQ(acknowledge(first), "invalidRequest");
  EXPECT_EQ(outcome([&] { await(queue.restoreProject("o", project)); }), "invalidRequest");
  EXPECT_TRUE(queue.isProjectCancelled("o", otherProject));
  // Of an erased owner nothing is read, not even what somebody else has put there.
  inFile("UPDATE sceneward_checkpoint_queue SET owner_id='o'");
  EXPECT_EQ(head(), "none");
}

TEST_F(CheckpointQueue, CancelsAHundredNamedOperationsOrNone) {
  std::vector<std::string> names;
  for (int i = 1; i <= 100; ++i) names.push_back(uuid(i));
  auto malformed = names, tooMany = names;
  malformed.back() += "0";
  tooMany.push_back(uuid(101));
  EXPECT_EQ(enqueue(1), "");
  for (const auto& refused : {malformed, tooMany}) EXPECT_EQ(cancel(refused), "invalidRequest");
  EXPECT_EQ(head(), "001");
  EXPECT_EQ(cancel(names), "");
  EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_cancelled_operations"), "100");
}

TEST_F(CheckpointQueue, ADamagedSaveStopsTheReadAndACancelledOneIsPassedOver) {
  const std::string of1 = " WHERE operation_id='" + uuid(1) + "' AND owner_id='o'";
  const std::pair<std::string, std::string> damages[] = {
      {"payload=CAST(replace(CAST(payload AS TEXT), 'YWJj', 'YWJk') AS BLOB)", "invalidRequest"},
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
  // What a pass has read through is passed over when it reads again, but for what it would send.
  ScenewardCheckpointQueue::Verified verified;
  EXPECT_EQ(queue.pending("o", verified).at(0).operationID, uuid(0));
  EXPECT_EQ(verified.size(), 2U);
  const auto spoil = [&](int operation) {
    inFile("UPDATE sceneward_checkpoint_queue SET payload=x'7b7d' WHERE operation_id='" + uuid(operation) +
           "'");
    return outcome([&] { EXPECT_EQ(queue.pending("o", verified).at(0).payload, payload(0)); });
  };
  EXPECT_EQ(spoil(2), "");
  EXPECT_EQ(spoil(0), "invalidRequest");
  EXPECT_EQ(enqueue(3), "");
  inFile("DELETE FROM sceneward_checkpoint_queue WHERE operation_id='" + uuid(2) + "'");
  inFile("INSERT INTO sceneward_cancelled_operations VALUES ('" + sha256Hex("o") + "', '" + uuid(0) + "')");
  EXPECT_EQ(queue.pending("o", verified).at(0).operationID, uuid(3));
  inFile("INSERT INTO sceneward_cancelled_projects VALUES ('" + sha256Hex("o") + "', '" + project +
         "', NULL)");
  EXPECT_TRUE(queue.pending("o", verified).empty());
}

TEST_F(CheckpointQueue, OfACancellationAndASaveInTwoProgramsTheCancellationWins) {
  const ScenewardCheckpointQueue elsewhere(open());
  int operation = 0;
  for (int round = 0; round < 10; ++round) {
    const auto of = uuid(1000 + round);
    int saved = 0;
    std::string end;
    std::counting_semaphore<2> underWay(0);
    std::thread saver([&] {
      while (saved < 10'000 && (end = enqueue(++operation, "o", of)).empty()) {
        if (++saved == 3) underWay.release();
      }
      underWay.release();
    });
    underWay.acquire();
    await(elsewhere.cancelProject("o", of, {}));
    saver.join();
    EXPECT_EQ(end, "invalidRequest");
    EXPECT_EQ(head(), "none");
    EXPECT_EQ(inFile("SELECT COUNT(*) FROM sceneward_cancelled_operations"), std::to_string(saved));
    inFile("DELETE FROM sceneward_cancelled_operations");
  }
}

}  // namespace
}  // namespace vorlane
