#include "base/Digest.h"
#include "base/JsonArguments.h"
#include "devcloud/CloudFixture.h"

#include <gmock/gmock.h>

#include <thread>

namespace vorlane::devcloud {
namespace {

using testing::HasSubstr;

class IdentityTest : public CloudFixture {};

/// The claims as a client reads them, without a look at the signature.
JSONMap claimsOf(const std::string& token) {
  std::string payload = token.substr(token.find('.') + 1);
  payload = payload.substr(0, payload.find('.'));
  for (char& c : payload) c = c == '-' ? '+' : c == '_' ? '/' : c;
  payload.append((4 - payload.size() % 4) % 4, '=');
  return parseJSONMap(base64Decoded(payload).value());
}

TEST_F(IdentityTest, ARefreshRotatesTheRefreshTokenAndTheOldOneIsDead) {
  const std::string first = cloud.issueTokens(demo).refreshToken;
  const Reply reply = refresh(first);
  ASSERT_EQ(reply.status, 200) << reply.body;
  EXPECT_EQ(reply.at("token_type"), "Bearer");
  EXPECT_EQ(reply.at("expires_in"), "3600");
  const std::string second = reply.at("refresh_token");
  EXPECT_NE(second, first);

  const Reply again = refresh(first);
  EXPECT_EQ(again.status, 403);
  EXPECT_EQ(again.at("error"), "invalid_grant");
  EXPECT_FALSE(again.at("error_description").empty());

  const Reply third = refresh(second);
  ASSERT_EQ(third.status, 200) << "the reuse of a dead token leaves its successor alone";
  EXPECT_NE(third.at("access_token"), reply.at("access_token")) << "tokens of one second differ";
  cloud.revokeTokens(demo);
  EXPECT_EQ(refresh(third.at("refresh_token")).at("error"), "invalid_grant");
}

TEST_F(IdentityTest, WithoutRotationTheOldTokenLivesOnAndIsNotRepeated) {
  cloud.putPerson({.sub = demo, .tokenLifetime = 5, .rotatesRefreshTokens = false});
  const std::string token = cloud.issueTokens(demo).refreshToken;
  for (int round = 0; round < 2; ++round) {
    const Reply reply = refresh(token);
    ASSERT_EQ(reply.status, 200);
    EXPECT_FALSE(reply.json().contains("refresh_token"));
    EXPECT_EQ(reply.at("expires_in"), "5");
  }
}

TEST_F(IdentityTest, AWrongTokenRequestIsRefusedByItsOAuthCode) {
  const std::string form = "Content-Type: application/x-www-form-urlencoded; charset=utf-8";
  const std::string client = "client_id=" + std::string(clientID);
  struct Case {
    std::string header, body;
    int status;
    std::string error, description;
  };
  for (const Case& each :
       {Case{form, "grant_type=refresh_token&client_id=nobody&refresh_token=x", 401, "invalid_client",
             "client"},
        Case{form, client + "&grant_type=refresh_token&refresh_token=x", 403, "invalid_grant",
             "refresh token"},
        Case{form, client + "&grant_type=refresh_token", 400, "invalid_request", "refresh_token"},
        Case{form, client + "&refresh_token=x", 400, "invalid_request", "grant_type"},
        Case{form, "grant_type=refresh_token&refresh_token=x", 400, "invalid_request", "client_id"},
        Case{form, client + "&grant_type=password", 400, "unsupported_grant_type", "password"},
        Case{form, client + "&" + client + "&grant_type=refresh_token", 400, "invalid_request", "repeated"},
        Case{form, "grant_type=%ZZ", 400, "invalid_request", "decode"},
        Case{form, "grant_type=%FF", 400, "invalid_request", "decode"},
        Case{"Content-Type: application/json", "{}", 400, "invalid_request", "form-urlencoded"}}) {
    const Reply reply = send({"POST", "/oauth/token", {each.header}, each.body});
    EXPECT_EQ(reply.status, each.status) << each.body;
    EXPECT_EQ(reply.at("error"), each.error) << each.body;
    EXPECT_THAT(reply.at("error_description"), HasSubstr(each.description)) << each.body;
  }
}

TEST_F(IdentityTest, TokensCarryTheClaimsThatClientsRead) {
  cloud.putPerson({.sub = "a|1", .email = "a@b.c", .name = "A", .admin = true});
  const IssuedTokens tokens = cloud.issueTokens("a|1", 120);
  const JSONMap access = claimsOf(tokens.accessToken);
  const JSONMap id = claimsOf(tokens.idToken);
  for (const JSONMap* claims : {&access, &id}) {
    EXPECT_EQ(json::stringOr(*claims, "sub"), "a|1");
    EXPECT_EQ(json::stringOr(*claims, "email"), "a@b.c");
    EXPECT_EQ(json::stringOr(*claims, "name"), "A");
    EXPECT_EQ(json::stringOr(*claims, "iss"), cloud.base() + "/");
    EXPECT_TRUE(json::booleanOr(*claims, "https://vorlane.test/isAdmin", false));
    EXPECT_EQ(json::integer(*claims, "exp").value() - json::integer(*claims, "iat").value(), 120);
  }
  EXPECT_EQ(json::stringOr(id, "aud"), clientID);
  EXPECT_FALSE(claimsOf(accessToken()).contains("https://vorlane.test/isAdmin"));

  const Reply stored = control("POST", "tokens", R"({"sub":"a|1","lifetime":60})");
  EXPECT_NEAR(json::number(stored.json(), "expiresAt").value(), secondsSince2001(time.load()) + 60, 0.001);
  EXPECT_EQ(stored.at("tokenType"), "Bearer");
  EXPECT_EQ(refresh(stored.at("refreshToken")).status, 200);
  EXPECT_EQ(sendAs(stored.at("accessToken"), {.path = "/api/user/profile"}).at("profile.email"), "a@b.c");

  const Reply keys = send({.path = "/.well-known/jwks.json"});
  const JSONMap key = keys.json().at("keys").as_array().at(0).as_object();
  EXPECT_EQ(json::stringOr(key, "alg"), "ES256");
  EXPECT_FALSE(key.contains("d")) << "the private half stays at home";
}

TEST_F(IdentityTest, ABearerThatProvesNothingGets401AndAReason) {
  const IssuedTokens tokens = cloud.issueTokens(demo, 60);
  const std::string& good = tokens.accessToken;
  const std::string unsignedToken = good.substr(0, good.rfind('.') + 1);
  std::string forged = good;
  forged[good.find('.') + 5] = forged[good.find('.') + 5] == 'A' ? 'B' : 'A';
  struct Case {
    std::string authorization, reason;
  };
  for (const Case& each :
       {Case{"", "no bearer"}, Case{"Basic abc", "no bearer"}, Case{"Bearer  ", "no bearer"},
        Case{"Bearer x", "not ours"}, Case{"Bearer a.b.c", "not ours"},
        Case{"Bearer " + unsignedToken, "not ours"}, Case{"Bearer " + forged, "not ours"},
        Case{"Bearer " + tokens.idToken, "not for this API"}}) {
    std::vector<std::string> headers;
    if (!each.authorization.empty()) headers.push_back("Authorization: " + each.authorization);
    const Reply reply = send({.path = "/api/user/profile", .headers = headers});
    EXPECT_EQ(reply.status, 401) << each.authorization;
    EXPECT_THAT(reply.at("error"), HasSubstr(each.reason)) << each.authorization;
    EXPECT_THAT(reply.head, HasSubstr("WWW-Authenticate: Bearer"));
  }
  EXPECT_EQ(sendAs(good, {.path = "/api/user/profile"}).status, 200);
  time = time.load() + std::chrono::seconds(61);
  EXPECT_THAT(sendAs(good, {.path = "/api/user/profile"}).at("error"), HasSubstr("expired"));
  const std::string late = accessToken();
  cloud.removePerson(demo);
  EXPECT_THAT(sendAs(late, {.path = "/api/user/profile"}).at("error"), HasSubstr("gone"));
  EXPECT_EQ(refresh(tokens.refreshToken).at("error"), "invalid_grant");
}

TEST_F(IdentityTest, OfManyWhoUseOneRefreshTokenAtOnceOneWins) {
  const std::string token = cloud.issueTokens(demo).refreshToken;
  std::atomic<int> won = 0;
  {
    std::vector<std::jthread> clients;
    for (int i = 0; i < 8; ++i) {
      clients.emplace_back([&] { won += refresh(token).status == 200 ? 1 : 0; });
    }
  }
  EXPECT_EQ(won, 1);
  EXPECT_EQ(cloud.requests({.path = "/oauth/token"}).size(), 8U);
}

}  // namespace
}  // namespace vorlane::devcloud
