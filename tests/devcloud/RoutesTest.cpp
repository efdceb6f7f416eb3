#include "base/Digest.h"
#include "devcloud/CloudFixture.h"

namespace vorlane::devcloud {
namespace {

using RoutesTest = CloudFixture;

/// The claims as a client reads them, without a look at the signature.
Reply claimsOf(const std::string& token) {
  const std::size_t start = token.find('.') + 1;
  std::string payload = token.substr(start, token.rfind('.') - start);
  for (char& c : payload) c = c == '-' ? '+' : c == '_' ? '/' : c;
  payload.append((4 - payload.size() % 4) % 4, '=');
  return {.body = base64Decoded(payload).value()};
}

TEST_F(RoutesTest, ARefreshRotatesTheRefreshTokenAndTheOldOneIsDead) {
  const std::string first = cloud.issueTokens(demo).refreshToken;
  const Reply reply = refresh(first);
  ASSERT_EQ(reply.status, 200) << reply.body;
  EXPECT_EQ(reply.at("token_type"), "Bearer");
  EXPECT_EQ(reply.at("expires_in"), "3600");
  EXPECT_NE(reply.at("refresh_token"), first);

  const Reply again = refresh(first);
  EXPECT_EQ(again.status, 403);
  EXPECT_EQ(again.at("error"), "invalid_grant");
  EXPECT_FALSE(again.at("error_description").empty());

  const Reply third = refresh(reply.at("refresh_token"));
  ASSERT_EQ(third.status, 200) << "the reuse of a dead token leaves its successor alone";
  EXPECT_NE(third.at("access_token"), reply.at("access_token")) << "tokens of one second differ";
  cloud.revokeTokens(demo);
  EXPECT_EQ(refresh(third.at("refresh_token")).at("error"), "invalid_grant");

  cloud.putPerson({.sub = demo, .tokenLifetime = 5, .rotatesRefreshTokens = false});
  const std::string lasting = cloud.issueTokens(demo).refreshToken;
  for (int round = 0; round < 2; ++round) {
    const Reply kept = refresh(lasting);
    EXPECT_EQ(kept.at("expires_in"), "5");
    EXPECT_EQ(kept.at("refresh_token"), "");
  }
}

TEST_F(RoutesTest, TokensCarryTheClaimsThatClientsRead) {
  cloud.putPerson({.sub = "a|1", .email = "a@b.c", .admin = true});
  const IssuedTokens tokens = cloud.issueTokens("a|1", 120);
  for (const std::string& each : {tokens.accessToken, tokens.idToken}) {
    const Reply claims = claimsOf(each);
    EXPECT_EQ(claims.at("sub"), "a|1");
    EXPECT_EQ(claims.at("email"), "a@b.c");
    EXPECT_EQ(claims.at("iss"), cloud.base() + "/");
    EXPECT_EQ(claims.at("https:~1~1vorlane.test~1isAdmin"), "true");
    EXPECT_EQ(std::stol(claims.at("exp")) - std::stol(claims.at("iat")), 120);
  }
  EXPECT_EQ(claimsOf(tokens.idToken).at("aud"), clientID);
  EXPECT_THAT(claimsOf(token).body, testing::Not(HasSubstr("isAdmin")));

  const Reply stored = control("POST", "tokens", R"({"sub":"a|1","lifetime":60})");
  EXPECT_NEAR(std::stod(stored.at("expiresAt")), secondsSince2001(time.load()) + 60, 0.001);
  EXPECT_EQ(refresh(stored.at("refreshToken")).status, 200);
  EXPECT_EQ(sendAs(stored.at("accessToken"), {.path = "/api/user/profile"}).at("profile/email"), "a@b.c");
}

TEST_F(RoutesTest, ABearerThatProvesNothingGets401AndAReason) {
  const IssuedTokens tokens = cloud.issueTokens(demo, 60);
  const std::string& good = tokens.accessToken;
  std::string forged = good;
  forged[good.find('.') + 5] = forged[good.find('.') + 5] == 'A' ? 'B' : 'A';
  const auto refusal = [&](const std::string& authorization) {
    const Reply reply = send({.path = "/api/user/profile", .headers = {"Authorization: " + authorization}});
    EXPECT_EQ(reply.status, 401) << authorization;
    EXPECT_THAT(reply.head, HasSubstr("WWW-Authenticate: Bearer"));
    return reply.at("error");
  };
  for (const char* none : {"", "Basic abc", "Bearer  "}) EXPECT_THAT(refusal(none), HasSubstr("no bearer"));
  for (const std::string& wrong : {std::string("x"), good.substr(0, good.rfind('.') + 1), forged}) {
    EXPECT_THAT(refusal("Bearer " + wrong), HasSubstr("not ours"));
  }
  EXPECT_THAT(refusal("Bearer " + tokens.idToken), HasSubstr("not for this API"));
  EXPECT_EQ(sendAs(good, {.path = "/api/user/profile"}).status, 200);
  time = time.load() + std::chrono::seconds(61);
  EXPECT_THAT(refusal("Bearer " + good), HasSubstr("expired"));
  cloud.removePerson(demo);
  EXPECT_THAT(refusal("Bearer " + token), HasSubstr("gone"));
  EXPECT_EQ(refresh(tokens.refreshToken).at("error"), "invalid_grant");
}

TEST_F(RoutesTest, TheProfileAndTheSnapshotTellWhatThePersonMayDo) {
  const auto profile = [this] { return sendAs(token, {.path = "/api/user/profile"}); };
  const auto snapshot = [this] { return sendAs(token, {.path = "/api/ecosystem/admin-access/me"}); };
  EXPECT_EQ(profile().body,
            R"({"profile":{"email":"demo@vorlane.test","mcpAccess":true,"name":"Demo"},"success":true})");
  EXPECT_EQ(snapshot().at("role"), "none");
  EXPECT_EQ(snapshot().at("grants"), "[]");

  control("POST", "people",
          R"({"sub":"auth0|demo","role":"manager","snapshotLifetime":30,"mcpAccess":false,"grants":[
              {"product":"suite","section":"users","scope":{"projectId":"p1"},"actions":["read"]}]})");
  EXPECT_EQ(profile().at("profile/mcpAccess"), "false");
  const Reply manager = snapshot();
  EXPECT_EQ(manager.at("actorId"), demo);
  EXPECT_EQ(manager.at("role"), "manager");
  EXPECT_EQ(manager.at("isOwner"), "false");
  EXPECT_FALSE(manager.at("policyVersion").empty());
  EXPECT_EQ(dateFromISO8601(manager.at("validUntil")).value(),
            storageRounded(time.load() + std::chrono::seconds(30)));
  EXPECT_EQ(manager.at("grants/0/scope"), R"({"projectId":"p1"})");

  control("POST", "people", R"({"sub":"auth0|demo","role":"owner"})");
  EXPECT_EQ(snapshot().at("isOwner"), "true");
  control("POST", "people", R"({"sub":"auth0|demo","isOwner":false})");
  EXPECT_EQ(snapshot().at("isOwner"), "false");
  EXPECT_EQ(profile().at("profile/email"), "demo@vorlane.test") << "an update leaves the rest alone";
}

TEST_F(RoutesTest, ASheetIsMadeListedReadReplacedAndDeleted) {
  const std::string sheets = "/api/user/sheets";
  const Reply made = sendAs(token, {"POST", sheets, R"({"name":"Kit","type":"saved","sourceName":"Kit",
      "data":{"categories":[],"kept":9007199254740993},"metadata":{"source":"vorlane-agent"}})"});
  ASSERT_EQ(made.status, 201) << made.body;
  EXPECT_EQ(made.at("sheet/id"), "1000");
  EXPECT_EQ(made.at("sheet/data/kept"), "9007199254740993");
  sendAs(token, {"POST", sheets, R"({"name":"Two","data":{}})"});

  time = time.load() + std::chrono::seconds(5);
  const std::string replacement = R"({"name":"Kit 2","data":{"categories":[1]}})";
  EXPECT_EQ(sendAs(token, {"PUT", sheets + "/1000", replacement}).status, 200);
  const Reply list = sendAs(token, {.path = sheets});
  EXPECT_EQ(list.at("sheets/0/name"), "Kit 2") << "the latest change comes first";
  EXPECT_EQ(dateFromISO8601(list.at("sheets/0/updatedAt")), storageRounded(time.load()));
  EXPECT_EQ(list.at("sheets/0/data"), "");
  EXPECT_EQ(list.at("sheets/1/name"), "Two");
  const Reply read = sendAs(token, {.path = sheets + "/1000"});
  EXPECT_EQ(read.at("sheet/data"), R"({"categories":[1]})");
  EXPECT_EQ(read.at("sheet/metadata/source"), "vorlane-agent");

  cloud.putPerson({.sub = "other"});
  const std::string other = cloud.issueTokens("other").accessToken;
  EXPECT_EQ(sendAs(other, {"GET", sheets + "/1000"}).status, 404);
  EXPECT_EQ(sendAs(other, {"PUT", sheets + "/1000", R"({"name":"mine"})"}).status, 404);
  EXPECT_EQ(sendAs(other, {"DELETE", sheets + "/1000"}).status, 404);
  EXPECT_EQ(sendAs(token, {"DELETE", sheets + "/1000"}).status, 200);
  const Reply gone = sendAs(token, {"PUT", sheets + "/1000", R"({"name":"back"})"});
  EXPECT_EQ(gone.status, 404);
  EXPECT_EQ(gone.at("error"), "Sheet not found");
  EXPECT_EQ(sendAs(token, {"POST", sheets, R"({"name":"Three","data":{}})"}).at("sheet/id"), "1002")
      << "an id never comes back";
}

TEST_F(RoutesTest, ABadRequestIsAnsweredWithWhatIsWrongAndChangesNothing) {
  const std::string sheets = "/api/user/sheets";
  const std::string one = sheets + "/" + std::to_string(cloud.putSheet({.owner = demo, .name = "S"}).id);
  const std::string deep =
      R"({"name":"x","data":{"a":)" + std::string(500, '[') + std::string(500, ']') + "}}";
  const std::string form = "client_id=" + std::string(clientID) + "&grant_type=";
  const std::string people = "/__control/people", me = R"({"sub":"auth0|demo",)";
  const std::string theirs = "/__control/sheets/auth0%7Cdemo";
  const std::string faults = "/__control/faults", root = R"({"path":"/",)";
  const std::string state = control("GET", "people").body;
  const std::tuple<Call, int, std::string> cases[] = {
      {{"POST", sheets, "{"}, 400, "body"},
      {{"POST", sheets, R"({"data":{}})"}, 400, R"(\"name\" is missing)"},
      {{"POST", sheets, R"({"name":"x","data":[]})"}, 400, R"(\"data\")"},
      {{"POST", sheets, deep}, 400, R"(\"data\" nests deeper)"},
      {{"PUT", one, "{}"}, 400, R"(\"data\")"},
      {{"PUT", sheets + "/99999999999999999999", "{}"}, 404, "not found"},
      {{"PATCH", one, "{}"}, 405, "GET, PUT, DELETE"},
      {{"GET", "/api/nothing"}, 404, "/api/nothing"},
      {{"POST", "/oauth/token", "grant_type=refresh_token&client_id=x"}, 401, R"("invalid_client")"},
      {{"POST", "/oauth/token", form + "refresh_token"}, 400, R"("invalid_request")"},
      {{"POST", "/oauth/token", form + "password"}, 400, R"("unsupported_grant_type")"},
      {{"POST", "/oauth/token", form + "%ZZ"}, 400, "decode"},
      {{"POST", "/oauth/token", "{}", {"Content-Type: application/json"}}, 400, "form-urlencoded"},
      {{"POST", people, R"({"sub":""})"}, 400, R"("field":"sub")"},
      {{"POST", people, me + R"("name":"New","colour":1})"}, 400, R"("field":"colour")"},
      {{"POST", people, me + R"("grants":[{"product":"p","section":"s"}]})"}, 400, R"("grants[0].actions")"},
      {{"POST", "/__control/tokens", R"({"sub":"nobody"})"}, 400, R"("field":"sub")"},
      {{"POST", "/__control/tokens", me + R"("lifetime":1.5})"}, 400, R"("field":"lifetime")"},
      {{"POST", theirs, R"({"name":"x"})"}, 400, R"("field":"data")"},
      {{"DELETE", theirs + "/4321"}, 404, "no such sheet"},
      {{"POST", faults, R"({"path":"/"})"}, 400, R"("field":"status")"},
      {{"POST", faults, root + R"("status":99})"}, 400, R"("field":"status")"},
      {{"POST", faults, root + R"("cut":"wire"})"}, 400, R"("field":"cut")"},
      {{"POST", faults, root + R"("effect":true,"delayMs":1})"}, 400, R"("field":"effect")"},
      {{"POST", faults, root + R"("redirect":"/","status":200})"}, 400, R"("field":"status")"},
      {{"POST", faults, root + R"("match":"regex","status":500})"}, 400, R"("field":"match")"},
      {{"POST", faults, root + R"("status":302,"headers":{"A":"b\r\n"}})"}, 400, R"("field":"headers.A")"},
      {{"GET", "/__control/requests?atLeast=many"}, 400, R"("field":"atLeast")"},
  };
  for (const auto& [call, status, text] : cases) {
    const Reply reply = sendAs(token, call);
    EXPECT_EQ(reply.status, status) << call.method << call.path << call.body.substr(0, 50);
    EXPECT_THAT(reply.body, HasSubstr(text));
    EXPECT_EQ(reply.at("success"), call.path.starts_with("/oauth") ? "" : "false");
  }
  EXPECT_EQ(control("GET", "people").body, state);
  EXPECT_EQ(cloud.sheets(demo).size(), 1U);
  EXPECT_TRUE(cloud.faults().empty());
}

TEST_F(RoutesTest, ThePlainPortServesTheControlRoutesAloneAndNoWebPage) {
  for (const char* path : {"/api/user/profile", "/api/user/sheets", "/.well-known/jwks.json"}) {
    EXPECT_EQ(send({.path = path}, false).status, 403) << path;
  }
  const std::string people = "/__control/people";
  EXPECT_EQ(send({.path = people}, true).status, 200);
  EXPECT_EQ(send({.path = people, .headers = {"Origin: https://evil.test"}}, false).status, 403);
  EXPECT_EQ(send({.path = people, .headers = {"Host: evil.test"}}, false).status, 403);
}

}  // namespace
}  // namespace vorlane::devcloud
