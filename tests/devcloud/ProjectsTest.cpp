#include "base/Encodings.h"
#include "base/SHA256.h"
#include "devcloud/CloudFixture.h"

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
  const Reply receipt = save(first, "0B6D7A5E-3C1F-4F0E-9A55-7D2F1C8E4B01");
  ASSERT_EQ(receipt.status, 200) << receipt.body;
  EXPECT_EQ(receipt.at("committedManifestRevision"), "1");
  EXPECT_EQ(dateFromISO8601(receipt.at("committedAt")), storageRounded(time.load()));

  time = time.load() + std::chrono::minutes(1);
  const std::string second = "22222222-2222-4333-8444-555555555555";
  EXPECT_EQ(save(checkpoint(second, 1)).at("committedManifestRevision"), "2");
  EXPECT_EQ(save(first).body, receipt.body);

  JSONMap other = checkpoint(operation, 2);
  other["note"] = "other bytes";
  const std::pair<std::string, std::string> conflicts[] = {
      {writeJSON(other), "other bytes"},
      {writeJSON(checkpoint("33333333-2222-4333-8444-555555555555", 1)), "revision 2"}};
  for (const auto& [body, text] : conflicts) {
    const Reply reply = save(body);
    EXPECT_EQ(reply.status, 409);
    EXPECT_THAT(reply.at("error"), HasSubstr(text));
    EXPECT_EQ(reply.at("currentRevision"), "2");
  }
  EXPECT_EQ(cloud.call(&Projects::commits, demo).size(), 2U);
  const Reply kept = control("GET", "projects/auth0%7Cdemo");
  EXPECT_EQ(kept.at("projects/0/commits/0/operationId"), operation);
  EXPECT_EQ(kept.at("projects/0/commits/0/received"), "2");

  EXPECT_EQ(sendAs(token, {.path = "/api/v1/projects"}).at("projects/0/name"), "Harbour");
}

TEST_F(ProjectsTest, WhoMayNotSaveIsToldSoAndNothingIsKept) {
  const auto me = [this] { return sendAs(token, {.path = "/api/v1/user/me"}); };
  const std::string body = writeJSON(checkpoint(operation, 0));
  EXPECT_EQ(me().body, R"({"persistenceCapabilities":{"cloudProjectWrite":true},"subject":"auth0|demo"})");
  cloud.call(&People::update, {{"sub", demo}, {"cloudProjectWrite", false}});
  EXPECT_EQ(me().at("persistenceCapabilities/cloudProjectWrite"), "false");
  EXPECT_EQ(save(body).status, 403);
  control("POST", "people", R"({"sub":"auth0|demo","cloudProjectWrite":true,"gone":true})");
  EXPECT_EQ(save(body).status, 410);
  cloud.call(&People::update, {{"sub", demo}, {"gone", false}});
  EXPECT_EQ(send({"PUT", "/api/v1/projects/" + project + "/checkpoints", body}).status, 401);
  EXPECT_EQ(save(body, "not-a-uuid").status, 404);
  // What is replaced in a sound payload, and the place that the refusal names.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {R"("operationId":"1)", R"("operationId":")", "operationId"},
      {R"("expectedRevision":0)", R"("expectedRevision":true)", "expectedRevision"},
      {R"("id":"0b)", R"("id":"1b)", "checkpoint.projectDocument.id"},
      {R"("sha256":")", R"("sha256":"0)", "checkpoint.assets[0].sha256"},
  };
  for (const auto& [from, to, field] : cases) {
    std::string wrong = body;
    const Reply reply = save(wrong.replace(wrong.find(from), from.size(), to));
    EXPECT_EQ(reply.status, 422) << field;
    EXPECT_EQ(reply.at("field"), field);
  }
  EXPECT_TRUE(cloud.call(&Projects::ownedBy, demo).empty());

  cloud.call(&People::put, {.sub = "other"});
  cloud.call(&Projects::put, {.id = project, .owner = "other", .name = "Theirs"});
  EXPECT_EQ(save(body).status, 404);
  EXPECT_EQ(control("DELETE", "projects/other/" + project).status, 200);
  EXPECT_EQ(save(body).status, 200);
}

TEST_F(ProjectsTest, SixtyFourMebibytesAreTakenAndNotAByteMore) {
  std::string body = writeJSON(checkpoint(operation, 0, std::string(30 << 20, 'z')));
  body.resize((64 << 20) + 1, ' ');
  EXPECT_EQ(save(body).status, 413);
  body.pop_back();
  EXPECT_EQ(save(body).status, 200);
  EXPECT_EQ(cloud.call(&Projects::commits, demo).at(0).payloadBytes, 64 << 20);
}

}  // namespace
}  // namespace vorlane::devcloud
