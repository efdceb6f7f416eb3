#include "devcloud/CloudFixture.h"

namespace vorlane::devcloud {
namespace {

using RoutesTest = CloudFixture;

TEST_F(RoutesTest, ARefreshRotatesTheRefreshTokenAndTheOldOneIsDead) {
  const std::string first = cloud.call(&Identity::issue, demo, {}).refreshToken;
  const Reply reply = refresh(first);
  ASSERT_EQ(reply.status, 200) << reply.body;
  EXPECT_EQ(reply.at("expires_in"), "3600");

  const Reply again = refresh(first);
  EXPECT_EQ(again.status, 403);
  EXPECT_EQ(again.at("error"), "invalid_grant");

  const Reply third = refresh(reply.at("refresh_token"));
  ASSERT_EQ(third.status, 200) << "the reuse of a dead token leaves its successor alone";
  cloud.call(&Identity::revoke, demo);
  EXPECT_EQ(refresh(third.at("refresh_token")).at("error"), "invalid_grant");

  cloud.call(&People::put, {.sub = demo, .tokenLifetime = 5, .rotatesRefreshTokens = false});
  const std::string lasting = cloud.call(&Identity::issue, demo, {}).refreshToken;
  for (int round = 0; round < 2; ++round) {
    const Reply kept = refresh(lasting);
    EXPECT_EQ(kept.at("expires_in"), "5");
    EXPECT_EQ(kept.at("refresh_token"), "");
  }
}

TEST_F(RoutesTest, ABearerThatProvesNothingGets401AndAReason) {
  const IssuedTokens tokens = cloud.call(&Identity::issue, demo, 60);
  const std::string& good = tokens.accessToken;
  std::string forged = good;
  forged[good.find('.') + 5] = forged[good.find('.') + 5] == 'A' ? 'B' : 'A';
  const auto refusal = [&](const std::string& authorization) {
    const Reply reply = send({.path = "/api/user/profile", .headers = {"Authorization: " + authorization}});
    EXPECT_EQ(reply.status, 401) << authorization;
    EXPECT_THAT(reply.head, HasSubstr("WWW-Authenticate: Bearer"));
    return reply.at("error");
  };
  EXPECT_THAT(refusal("Basic abc"), HasSubstr("no bearer"));
  EXPECT_THAT(refusal("Bearer " + good.substr(0, good.rfind('.') + 1)), HasSubstr("not ours"));
  EXPECT_THAT(refusal("Bearer " + forged), HasSubstr("not ours"));
  EXPECT_THAT(refusal("Bearer " + tokens.idToken), HasSubstr("not for this API"));
  time = time.load() + std::chrono::seconds(61);
  EXPECT_THAT(refusal("Bearer " + good), HasSubstr("expired"));
  cloud.call(&People::remove, demo);
  EXPECT_THAT(refusal("Bearer " + token), HasSubstr("gone"));
  EXPECT_EQ(refresh(tokens.refreshToken).at("error"), "invalid_grant");
}

TEST_F(RoutesTest, AnUpdateOfAPersonShowsAndLeavesTheRestAlone) {
  control("POST", "people",
          R"({"sub":"auth0|demo","role":"manager","snapshotLifetime":30,"mcpAccess":false,"grants":[
              {"product":"suite","section":"users","scope":{"projectId":"p1"},"actions":["read"]}]})");
  EXPECT_EQ(sendAs(token, {.path = "/api/user/profile"}).body,
            R"({"profile":{"email":"demo@vorlane.test","mcpAccess":false,"name":"Demo"},"success":true})");
  const Reply manager = sendAs(token, {.path = "/api/ecosystem/admin-access/me"});
  EXPECT_EQ(dateFromISO8601(manager.at("validUntil")).value(),
            storageRounded(time.load() + std::chrono::seconds(30)));
  EXPECT_EQ(manager.at("grants/0/scope"), R"({"projectId":"p1"})");
  const Reply stored = control("POST", "tokens", R"({"sub":"auth0|demo","lifetime":60})");
  EXPECT_NEAR(std::stod(stored.at("expiresAt")), secondsSince2001(time.load()) + 60, 0.001);
  EXPECT_EQ(refresh(stored.at("refreshToken")).status, 200);
}

TEST_F(RoutesTest, ASheetIsItsOwnersAloneAndItsIDNeverComesBack) {
  const std::string sheets = "/api/user/sheets";
  const Reply made = sendAs(token, {"POST", sheets, R"({"name":"Kit","type":"saved","sourceName":"Kit",
      "data":{"categories":[],"kept":9007199254740993},"metadata":{"source":"vorlane-agent"}})"});
  ASSERT_EQ(made.status, 201) << made.body;
  EXPECT_EQ(made.at("sheet/data/kept"), "9007199254740993");
  sendAs(token, {"POST", sheets, R"({"name":"Two","data":{}})"});
  time = time.load() + std::chrono::seconds(5);
  EXPECT_EQ(sendAs(token, {"PUT", sheets + "/1000", R"({"name":"Kit 2","data":{"categories":[1]}})"}).status,
            200);
  const Reply list = sendAs(token, {.path = sheets});
  EXPECT_EQ(list.at("sheets/0/name"), "Kit 2") << "the latest change comes first";
  EXPECT_EQ(dateFromISO8601(list.at("sheets/0/updatedAt")), storageRounded(time.load()));
  EXPECT_EQ(sendAs(token, {.path = sheets + "/1000"}).at("sheet/data"), R"({"categories":[1]})");

  cloud.call(&People::put, {.sub = "other"});
  const std::string other = cloud.call(&Identity::issue, "other", {}).accessToken;
  for (const char* method : {"GET", "PUT", "DELETE"}) {
    EXPECT_EQ(sendAs(other, {method, sheets + "/1000", R"({"name":"mine"})"}).status, 404);
  }
  EXPECT_EQ(sendAs(token, {"DELETE", sheets + "/1000"}).status, 200);
  EXPECT_EQ(sendAs(token, {"PUT", sheets + "/1000", R"({"name":"back"})"}).status, 404);
  EXPECT_EQ(sendAs(token, {"POST", sheets, R"({"name":"Three","data":{}})"}).at("sheet/id"), "1002");
}

TEST_F(RoutesTest, ABadRequestIsAnsweredWithWhatIsWrongAndChangesNothing) {
  const std::string sheets = "/api/user/sheets";
  const std::string one =
      sheets + "/" + std::to_string(cloud.call(&Sheets::put, {.owner = demo, .name = "S"}).id);
  const std::string deep =
      R"({"name":"x","data":{"a":)" + std::string(500, '[') + std::string(500, ']') + "}}";
  const std::string people = "/__control/people", me = R"({"sub":"auth0|demo",)";
  const std::string faults = "/__control/faults", root = R"({"path":"/",)";
  const std::string state = control("GET", "people").body;
  const std::tuple<Call, int, std::string> cases[] = {
      {{"POST", sheets, "{"}, 400, "body"},
      {{"POST", sheets, deep}, 400, R"(\"data\" nests deeper)"},
      {{"PATCH", one, "{}"}, 405, "GET, PUT, DELETE"},
      {{"POST", "/oauth/token", "grant_type=refresh_token&client_id=x"}, 401, R"("invalid_client")"},
      {{"POST", people, me + R"("name":"New","colour":1})"}, 400, R"("field":"colour")"},
      {{"POST", "/__control/tokens", R"({"sub":"nobody"})"}, 400, R"("field":"sub")"},
      {{"POST", faults, root + R"("status":99})"}, 400, R"("field":"status")"},
      {{"POST", faults, root + R"("cut":"wire"})"}, 400, R"("field":"cut")"},
      {{"POST", faults, root + R"("effect":true,"delayMs":1})"}, 400, R"("field":"effect")"},
  };
  for (const auto& [call, status, text] : cases) {
    const Reply reply = sendAs(token, call);
    EXPECT_EQ(reply.status, status) << call.method << call.path << call.body.substr(0, 50);
    EXPECT_THAT(reply.body, HasSubstr(text));
    EXPECT_EQ(reply.at("success"), call.path.starts_with("/oauth") ? "" : "false");
  }
  EXPECT_EQ(control("GET", "people").body, state);
  EXPECT_EQ(cloud.call(&Sheets::ownedBy, demo).size(), 1U);
  EXPECT_TRUE(cloud.call(&Faults::all).empty());
}

TEST_F(RoutesTest, ThePlainPortServesTheControlRoutesAloneAndNoWebPage) {
  EXPECT_EQ(send({.path = "/api/user/profile"}, false).status, 403);
  const std::string people = "/__control/people";
  EXPECT_EQ(send({.path = people, .headers = {"Origin: https://evil.test"}}, false).status, 403);
  EXPECT_EQ(send({.path = people, .headers = {"Host: evil.test"}}, false).status, 403);
}

}  // namespace
}  // namespace vorlane::devcloud
