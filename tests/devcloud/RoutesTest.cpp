#include "base/JsonArguments.h"
#include "devcloud/CloudFixture.h"

#include <gmock/gmock.h>

namespace vorlane::devcloud {
namespace {

using testing::HasSubstr;

class RoutesTest : public CloudFixture {};

TEST_F(RoutesTest, TheProfileAndTheSnapshotTellWhatThePersonMayDo) {
  const std::string token = accessToken();
  EXPECT_EQ(sendAs(token, {.path = "/api/user/profile"}).body,
            R"({"profile":{"email":"demo@vorlane.test","mcpAccess":true,"name":"Demo"},"success":true})");

  const Call snapshot{.path = "/api/ecosystem/admin-access/me"};
  const Reply none = sendAs(token, snapshot);
  EXPECT_EQ(none.at("role"), "none");
  EXPECT_EQ(none.at("grants"), "[]");

  ASSERT_EQ(control("POST", "people",
                    R"({"sub":"auth0|demo","role":"manager","snapshotLifetime":30,"mcpAccess":false,"grants":[
                        {"product":"suite","section":"users","actions":["read"],"scope":{"projectId":"p1"},
                         "startsAt":"2020-01-01T00:00:00Z","expiresAt":"not a date"}]})")
                .status,
            200);
  EXPECT_EQ(sendAs(token, {.path = "/api/user/profile"}).at("profile.mcpAccess"), "false");
  const Reply manager = sendAs(token, snapshot);
  EXPECT_EQ(manager.at("actorId"), demo);
  EXPECT_EQ(manager.at("role"), "manager");
  EXPECT_EQ(manager.at("isOwner"), "false");
  EXPECT_FALSE(manager.at("policyVersion").empty());
  EXPECT_EQ(dateFromISO8601(manager.at("validUntil")).value(),
            storageRounded(time.load() + std::chrono::seconds(30)));
  EXPECT_THAT(manager.at("grants"), HasSubstr(R"("scope":{"projectId":"p1"})"));

  control("POST", "people", R"({"sub":"auth0|demo","role":"owner"})");
  EXPECT_EQ(sendAs(token, snapshot).at("isOwner"), "true");
  control("POST", "people", R"({"sub":"auth0|demo","isOwner":false})");
  EXPECT_EQ(sendAs(token, snapshot).at("isOwner"), "false");
  EXPECT_EQ(cloud.person(demo)->email, "demo@vorlane.test") << "an update leaves the rest alone";
}

TEST_F(RoutesTest, ASheetIsMadeListedReadReplacedAndDeleted) {
  const std::string token = accessToken();
  const std::string sheets = "/api/user/sheets";
  const Reply made = sendAs(token, {"POST", sheets, {}, R"({"name":"Kit","type":"saved","sourceName":"Kit",
      "data":{"categories":[],"price":4.0,"kept":9007199254740993},"metadata":{"source":"vorlane-agent"}})"});
  ASSERT_EQ(made.status, 201) << made.body;
  EXPECT_EQ(made.at("success"), "true");
  EXPECT_EQ(made.at("sheet.id"), "1000");
  sendAs(token, {"POST", sheets, {}, R"({"name":"Two","data":{}})"});

  time = time.load() + std::chrono::seconds(5);
  const Reply replaced =
      sendAs(token, {"PUT", sheets + "/1000", {}, R"({"name":"Kit 2","data":{"categories":[1]}})"});
  EXPECT_EQ(replaced.status, 200) << replaced.body;
  const JSONArray list = sendAs(token, {.path = sheets}).json().at("sheets").as_array();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(json::stringOr(list[0].as_object(), "name"), "Kit 2") << "the latest change comes first";
  EXPECT_EQ(dateFromISO8601(json::stringOr(list[0].as_object(), "updatedAt")), storageRounded(time.load()));
  EXPECT_FALSE(list[0].as_object().contains("data"));
  const Reply read = sendAs(token, {.path = sheets + "/1000"});
  EXPECT_EQ(read.at("sheet.data"), R"({"categories":[1]})");
  EXPECT_EQ(read.at("sheet.metadata.source"), "vorlane-agent");

  cloud.putPerson({.sub = "other"});
  const std::string other = cloud.issueTokens("other").accessToken;
  for (const char* method : {"GET", "PUT", "DELETE"}) {
    const std::string body = method == std::string("PUT") ? R"({"name":"mine"})" : "";
    EXPECT_EQ(sendAs(other, {method, sheets + "/1000", {}, body}).status, 404) << method;
  }
  EXPECT_EQ(sendAs(token, {"DELETE", sheets + "/1000"}).status, 200);
  const Reply gone = sendAs(token, {"PUT", sheets + "/1000", {}, R"({"name":"back"})"});
  EXPECT_EQ(gone.status, 404);
  EXPECT_EQ(gone.at("error"), "Sheet not found");
  EXPECT_EQ(sendAs(token, {"POST", sheets, {}, R"({"name":"Three","data":{}})"}).at("sheet.id"), "1002")
      << "an id never comes back";
}

TEST_F(RoutesTest, ABadRequestIsAnsweredWithWhatIsWrong) {
  const std::string token = accessToken();
  const std::int64_t id = cloud.putSheet({.owner = demo, .name = "S"}).id;
  const std::string one = "/api/user/sheets/" + std::to_string(id);
  const std::string deep =
      R"({"name":"x","data":{"a":)" + std::string(500, '[') + std::string(500, ']') + "}}";
  struct Case {
    std::string method, path, body;
    int status;
    std::string text;
  };
  for (const Case& each : {Case{"POST", "/api/user/sheets", "{", 400, "body"},
                           Case{"POST", "/api/user/sheets", "[1]", 400, "body"},
                           Case{"POST", "/api/user/sheets", R"({"data":{}})", 400, "\"name\" is missing"},
                           Case{"POST", "/api/user/sheets", R"({"name":"","data":{}})", 400, "\"name\""},
                           Case{"POST", "/api/user/sheets", R"({"name":"x"})", 400, "\"data\" is missing"},
                           Case{"POST", "/api/user/sheets", R"({"name":"x","data":[]})", 400, "\"data\""},
                           Case{"POST", "/api/user/sheets", deep, 400, "\"data\" nests deeper"},
                           Case{"PUT", one, "{}", 400, "\"data\""},
                           Case{"PUT", one, R"({"name":7})", 400, "\"name\" must be a string"},
                           Case{"PUT", "/api/user/sheets/x1", "{}", 404, "not found"},
                           Case{"PUT", "/api/user/sheets/99999999999999999999", "{}", 404, "not found"},
                           Case{"PATCH", one, "{}", 405, "GET, PUT, DELETE"},
                           Case{"GET", "/api/nothing", "", 404, "/api/nothing"},
                           Case{"GET", "/api/user/sheets/", "", 404, "no route"}}) {
    const Reply reply = sendAs(token, {each.method, each.path, {}, each.body});
    EXPECT_EQ(reply.status, each.status) << each.method << each.path << each.body.substr(0, 50);
    EXPECT_THAT(reply.at("error"), HasSubstr(each.text));
    EXPECT_EQ(reply.at("success"), "false");
  }
  EXPECT_EQ(cloud.sheets(demo).size(), 1U);
}

TEST_F(RoutesTest, WithoutTLSThePlainPortServesTheControlRoutesAlone) {
  for (const char* path : {"/api/user/profile", "/api/user/sheets", "/.well-known/jwks.json"}) {
    EXPECT_EQ(send({.path = path}, false).status, 403) << path;
  }
  EXPECT_EQ(send({.path = "/__control/people"}, false).status, 200);
  EXPECT_EQ(send({.path = "/__control/people"}, true).status, 200);
  EXPECT_EQ(send({.path = "/__control/people", .headers = {"Origin: https://evil.test"}}, false).status, 403);
  EXPECT_EQ(send({.path = "/__control/people", .headers = {"Host: evil.test"}}, false).status, 403);
}

TEST_F(RoutesTest, ALargeDocumentGoesThroughWithAndWithoutAnAnnouncement) {
  const std::string body = R"({"name":"big","data":{"text":")" + std::string(3 << 20, 'x') + R"("}})";
  for (const char* expect : {"Expect:", "Expect: 100-continue"}) {
    const Reply made = sendAs(accessToken(), {"POST", "/api/user/sheets", {expect}, body});
    ASSERT_EQ(made.status, 201) << expect;
  }
  EXPECT_EQ(cloud.requests({.method = "POST"}).at(0).body.size(), std::size_t{1} << 20);
}

}  // namespace
}  // namespace vorlane::devcloud
