#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "devcloud/CloudFixture.h"

#include <functional>

namespace vorlane::devcloud {
namespace {

const std::string project = "0b6d7a5e-3c1f-4f0e-9a55-7d2f1c8e4b01";
const std::string operation = "11111111-2222-4333-8444-555555555555";

JSONMap checkpoint(const std::string& operationID, std::int64_t revision,
                   const std::string& archive = "zip") {
  return {{"operationId", operationID},
          {"expectedRevision", revision},
          {"checkpoint",
           {{"schemaVersion", 1},
            {"id", "AAAAAAAA-2222-4333-8444-555555555555"},
            {"projectDocument", {{"id", project}, {"name", "Harbour"}, {"scenes", JSONArray{JSONMap{}}}}},
            {"contentHash", std::string(64, 'a')},
            {"assets", JSONArray{JSONMap{{"kind", "project-archive"},
                                         {"id", "project-archive"},
                                         {"data", base64Encoded(archive)},
                                         {"bytes", archive.size()},
                                         {"sha256", sha256Hex(archive)}}}}}}};
}

class ProjectsTest : public CloudFixture {
 protected:
  Reply save(const std::string& body, const std::string& id = project) {
    return sendAs(token, {"PUT", "/api/v1/projects/" + id + "/checkpoints", body});
  }
  Reply save(const JSONMap& body) { return save(writeJSON(body)); }
};

TEST_F(ProjectsTest, ASaveIsCommittedOnceAndTheSameBytesGetTheSameReceiptAgain) {
  const std::string first = writeJSON(checkpoint(operation, 0));
  const std::string upper = "0B6D7A5E-3C1F-4F0E-9A55-7D2F1C8E4B01";
  const Reply receipt = sendAs(token, {"PUT",
                                       "/api/v1/projects/" + upper + "/checkpoints",
                                       first,
                                       {"X-Sceneward-Source: mac", "x-vorlane-device-id: d1"}});
  ASSERT_EQ(receipt.status, 200) << receipt.body;
  EXPECT_EQ(receipt.at("checkpointId"), "AAAAAAAA-2222-4333-8444-555555555555");
  EXPECT_EQ(receipt.at("contentHash"), std::string(64, 'a'));
  EXPECT_EQ(receipt.at("committedManifestRevision"), "1");
  EXPECT_EQ(dateFromISO8601(receipt.at("committedAt")), storageRounded(time.load()));
  const RecordedRequest arrived = cloud.requests({.method = "PUT"}).at(0);
  EXPECT_EQ(arrived.header("x-sceneward-source"), "mac");
  EXPECT_EQ(arrived.header("X-Vorlane-Device-ID"), "d1");

  time = time.load() + std::chrono::minutes(1);
  const std::string second = "22222222-2222-4333-8444-555555555555";
  EXPECT_EQ(save(checkpoint(second, 1)).at("committedManifestRevision"), "2");
  EXPECT_EQ(save(first).body, receipt.body);

  JSONMap other = checkpoint(operation, 2);
  other["note"] = "other bytes";
  const std::pair<std::string, std::string> conflicts[] = {
      {writeJSON(other), "other bytes"},
      {writeJSON(checkpoint("33333333-2222-4333-8444-555555555555", 1)), "revision 2"},
      {writeJSON(checkpoint("33333333-2222-4333-8444-555555555555", 3)), "revision 2"}};
  for (const auto& [body, text] : conflicts) {
    const Reply reply = save(body);
    EXPECT_EQ(reply.status, 409);
    EXPECT_THAT(reply.at("error"), HasSubstr(text));
    EXPECT_EQ(reply.at("currentRevision"), "2");
  }
  const auto commits = cloud.commits(demo);
  ASSERT_EQ(commits.size(), 2U);
  EXPECT_EQ(commits[0].operationID, operation);
  EXPECT_EQ(commits[0].received, 2);
  EXPECT_EQ(commits[0].payloadHash, sha256Hex(first));
  EXPECT_EQ(commits[0].payloadBytes, std::ssize(first));
  EXPECT_EQ(commits[1].revision, 2);

  cloud.putProject({.id = "1b6d7a5e-3c1f-4f0e-9a55-7d2f1c8e4b01",
                    .owner = demo,
                    .name = "Old",
                    .updatedAt = dateFromISO8601("2024-05-01T10:00:00Z").value(),
                    .revision = 7});
  const Reply list = sendAs(token, {.path = "/api/v1/projects"});
  EXPECT_EQ(list.at("projects/0/name"), "Harbour");
  EXPECT_EQ(list.at("projects/0/id"), project);
  EXPECT_EQ(
      list.at("projects/1"),
      R"({"id":"1b6d7a5e-3c1f-4f0e-9a55-7d2f1c8e4b01","name":"Old","updatedAt":"2024-05-01T10:00:00.000Z"})");
}

TEST_F(ProjectsTest, WhoMayNotSaveIsToldSoAndNothingIsKept) {
  const auto me = [this] { return sendAs(token, {.path = "/api/v1/user/me"}); };
  const std::string body = writeJSON(checkpoint(operation, 0));
  EXPECT_EQ(me().body, R"({"persistenceCapabilities":{"cloudProjectWrite":true},"subject":"auth0|demo"})");
  cloud.setCapability(demo, false);
  EXPECT_EQ(me().at("persistenceCapabilities/cloudProjectWrite"), "false");
  EXPECT_EQ(save(body).status, 403);
  control("POST", "people", R"({"sub":"auth0|demo","cloudProjectWrite":true,"gone":true})");
  EXPECT_EQ(save(body).status, 410);
  cloud.setGone(demo, false);
  EXPECT_THROW(cloud.setGone("nobody", true), Failure);
  EXPECT_EQ(send({"PUT", "/api/v1/projects/" + project + "/checkpoints", body}).status, 401);
  EXPECT_EQ(save(body, "not-a-uuid").status, 404);
  EXPECT_TRUE(cloud.projects(demo).empty());

  cloud.putPerson({.sub = "other"});
  cloud.putProject({.id = project, .owner = "other", .name = "Theirs"});
  EXPECT_EQ(save(body).status, 404);
  EXPECT_THROW(cloud.putProject({.id = project, .owner = demo}), Failure);
  cloud.removePerson("other");
  EXPECT_EQ(save(body).status, 200) << "a person's projects go with the person";
}

TEST_F(ProjectsTest, APayloadThatIsNoCheckpointIsRefusedWithTheFieldThatIsWrong) {
  using Edit = std::function<void(JSONMap&, JSONMap&, JSONMap&)>;
  const std::pair<Edit, std::string> cases[] = {
      {[](auto& p, auto&, auto&) { p["operationId"] = "x"; }, "operationId"},
      {[](auto& p, auto&, auto&) { p["expectedRevision"] = -1; }, "expectedRevision"},
      {[](auto& p, auto&, auto&) { p["expectedRevision"] = true; }, "expectedRevision"},
      {[](auto& p, auto&, auto&) { p.erase("checkpoint"); }, "checkpoint"},
      {[](auto&, auto& c, auto&) { c["schemaVersion"] = 2; }, "checkpoint.schemaVersion"},
      {[](auto&, auto& c, auto&) { c["id"] = "x"; }, "checkpoint.id"},
      {[](auto&, auto& c, auto&) { c["projectDocument"] = JSONMap{{"id", operation}}; },
       "checkpoint.projectDocument.id"},
      {[](auto&, auto& c, auto&) { c["projectDocument"] = JSONMap{{"id", project}}; },
       "checkpoint.projectDocument.scenes"},
      {[](auto&, auto& c, auto&) { c["contentHash"] = std::string(64, 'A'); }, "checkpoint.contentHash"},
      {[](auto&, auto& c, auto&) { c["assets"] = JSONArray(); }, "checkpoint.assets"},
      {[](auto&, auto&, auto& a) { a["kind"] = "x"; }, "checkpoint.assets[0].kind"},
      {[](auto&, auto&, auto& a) { a["data"] = "?"; }, "checkpoint.assets[0].data"},
      {[](auto&, auto&, auto& a) { a["bytes"] = 4; }, "checkpoint.assets[0].bytes"},
      {[](auto&, auto&, auto& a) { a["sha256"] = std::string(64, '0'); }, "checkpoint.assets[0].sha256"},
  };
  for (const auto& [edit, field] : cases) {
    JSONMap body = checkpoint(operation, 0);
    JSONMap& inner = body["checkpoint"].as_object();
    edit(body, inner, inner["assets"].as_array()[0].as_object());
    const Reply reply = save(body);
    EXPECT_EQ(reply.status, 422) << field;
    EXPECT_EQ(reply.at("field"), field);
  }
  EXPECT_EQ(save("{").status, 400);
  EXPECT_EQ(save("[]").status, 400);
  EXPECT_TRUE(cloud.projects(demo).empty());
}

TEST_F(ProjectsTest, SixtyFourMebibytesAreTakenAndNotAByteMore) {
  std::string body = writeJSON(checkpoint(operation, 0, std::string(30 << 20, 'z')));
  body.resize((64 << 20) + 1, ' ');
  EXPECT_EQ(save(body).status, 413);
  body.pop_back();
  EXPECT_EQ(save(body).status, 200);
  ASSERT_EQ(cloud.commits(demo).size(), 1U);
  EXPECT_EQ(cloud.commits(demo)[0].payloadBytes, 64 << 20);
}

TEST_F(ProjectsTest, AFaultCanReplaceTheReceiptWhileTheSaveTakesEffect) {
  const std::string path = "/api/v1/projects/" + project + "/checkpoints";
  const std::string body = writeJSON(checkpoint(operation, 0));
  Fault lost = answerFault(path, JSONMap{{"checkpointId", "wrong"}}, 500);
  lost.effect = true;
  cloud.addFault(lost);
  cloud.addFault(redirectFault(path, "https://127.0.0.1:1/", 307));
  cloud.addFault(answerFault(path, JSONArray{1}));
  EXPECT_EQ(save(body).at("checkpointId"), "wrong");
  EXPECT_EQ(cloud.commits(demo).size(), 1U) << "the save took effect";
  const Reply redirect = save(body);
  EXPECT_EQ(redirect.status, 307);
  EXPECT_THAT(redirect.head, HasSubstr("Location: https://127.0.0.1:1/"));
  EXPECT_EQ(save(body).body, "[1]");
  EXPECT_EQ(save(body).at("committedManifestRevision"), "1");
  EXPECT_EQ(cloud.commits(demo)[0].received, 2) << "the two replaced answers reached no handler";
}

TEST_F(ProjectsTest, ProjectsCanBePutListedAndDeletedForAPerson) {
  const std::string path = "projects/auth0%7Cdemo";
  const std::string made = R"({"id":")" + project + R"(","name":"A","revision":3})";
  EXPECT_EQ(control("POST", path, made).at("revision"), "3");
  EXPECT_EQ(save(checkpoint(operation, 3)).at("committedManifestRevision"), "4");
  const Reply list = control("GET", path);
  EXPECT_EQ(list.at("projects/0/commits/0/operationId"), operation);
  EXPECT_EQ(list.at("projects/0/commits/0/received"), "1");
  EXPECT_EQ(control("POST", path, R"({"id":"x","name":"A"})").at("field"), "id");
  EXPECT_EQ(control("DELETE", path + "/" + project).status, 200);
  EXPECT_EQ(control("DELETE", path + "/" + project).status, 404);
}

}  // namespace
}  // namespace vorlane::devcloud
