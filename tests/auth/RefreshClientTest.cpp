#include "AuthFixture.h"
#include "auth/AuthRefreshClient.h"

namespace vorlane::testing {
namespace {

struct RefreshClient : ::testing::Test {
  TaskHarness harness;
  std::vector<URLRequest> requests;
  AuthTokens stored{"old-access", "old-id", "old refresh+/=~", noon, "Bearer"};
  std::string domain = "id.vorlane.test:8443";
  AuthTokens tokens;  // of the last refresh that succeeded

  /// "refreshed", or the class and reason of the outcome. Status 0 is a failure of the transport.
  std::string refresh(int status, const std::string& body) {
    const auto transport = [&](URLRequest request) -> Task<URLResponse> {
      requests.push_back(std::move(request));
      if (status == 0) throw TransportFailure(7, body);
      co_return URLResponse{status, {}, {}, body};
    };
    const AuthRefreshClient client{domain, "Zr4m", transport, [] { return noon; }};
    const auto outcome = harness.run<AuthRefreshOutcome>([&] { return client.refresh(stored); });
    using namespace refresh_outcome;
    if (const auto* rejected = std::get_if<Rejected>(&outcome)) return "rejected: " + rejected->reason;
    if (const auto* transient = std::get_if<Transient>(&outcome)) return "transient: " + transient->reason;
    tokens = std::get<Refreshed>(outcome).tokens;
    return "refreshed";
  }
};

TEST_F(RefreshClient, SendsOneFormAndCarriesForwardByPresenceWhatTheAnswerDoesNotRepeat) {
  const std::pair<const char*, AuthTokens> table[] = {
      {R"({"access_token":"n"})", {"n", "old-id", "old refresh+/=~", noon + std::chrono::hours(1), "Bearer"}},
      {R"({"access_token":"n","refresh_token":"r","id_token":"i","expires_in":1.5,"token_type":"DPoP"})",
       {"n", "i", "r", noon + std::chrono::milliseconds(1500), "DPoP"}},
      {R"({"access_token":"n","refresh_token":null,"id_token":null,"expires_in":1e300})",
       {"n", {}, {}, dateFromSecondsSince2001(1e300).value(), "Bearer"}},
  };
  for (const auto& [body, expected] : table) {
    ASSERT_EQ(refresh(200, body), "refreshed");
    EXPECT_EQ(tokens, expected) << body;
  }
  const auto& request = requests.at(0);
  EXPECT_EQ(request.method + " " + request.url, "POST https://id.vorlane.test:8443/oauth/token");
  EXPECT_EQ(request.body, "grant_type=refresh_token&client_id=Zr4m&refresh_token=old%20refresh%2B%2F%3D~");
  EXPECT_EQ(request.headers.at(0).second, "application/x-www-form-urlencoded");
  EXPECT_EQ(request.timeout, std::chrono::seconds(60));
  EXPECT_FALSE(request.followRedirects);

  domain = "id.test/x?";
  EXPECT_EQ(refresh(200, ""), "transient: bad token URL for domain id.test/x?");
  stored.refreshToken = "";
  EXPECT_EQ(refresh(200, ""), "rejected: no refresh token stored (signed in before offline_access?)");
  EXPECT_EQ(requests.size(), std::size(table)) << "neither is sent";
}

TEST_F(RefreshClient, OnlyTheFourCodesOfAClientErrorRejectAndNoTokenIsTold) {
  for (const std::string code : {"invalid_grant", "invalid_client", "unauthorized_client", "access_denied"}) {
    const auto body = R"({"error":")" + code + "\"}";
    EXPECT_EQ(refresh(400, body), "rejected: auth0 400 " + code + ": " + body);
    EXPECT_EQ(refresh(500, body), "transient: auth0 500: " + body);
  }
  const std::string filler(155, 'x');
  const std::tuple<int, std::string, std::string> others[] = {
      {0, "no route", "transport: no route"},
      {200, R"({"access_token":7})", R"(undecodable 200 body: "access_token" is not a string)"},
      {499, R"({"error":"invalid_request"})", R"(auth0 499: {"error":"invalid_request"})"},
      {201, R"({"access_token":"SECRET"})", "auth0 201: "},
      {400, "\xff{\"error\":\"invalid_grant\"}", "auth0 400: "},
      {400, "old refresh+/=~ old%20refresh%2B%2F%3D~ old-access", "auth0 400: (token) (token) (token)"},
      // 160 characters; a token is blotted out before the cut.
      {500, filler + "old-access", "auth0 500: " + filler + "(toke"},
  };
  for (const auto& [status, body, reason] : others) EXPECT_EQ(refresh(status, body), "transient: " + reason);
}

}  // namespace
}  // namespace vorlane::testing
