#include "base/JsonArguments.h"
#include "devcloud/CloudFixture.h"

#include <curl/curl.h>
#include <gmock/gmock.h>

#include <future>

namespace vorlane::devcloud {
namespace {

using testing::HasSubstr;

class ControlTest : public CloudFixture {};

TEST_F(ControlTest, AWrongFieldIsNamedAndChangesNothing) {
  const std::string state = control("GET", "people").body;
  const std::string me = R"({"sub":"auth0|demo",)";
  struct Case {
    std::string path, body, field;
  };
  for (const Case& each :
       {Case{"people", "{}", "sub"},
        Case{"people", R"({"sub":""})", "sub"},
        Case{"people", me + R"("mcpAccess":"yes"})", "mcpAccess"},
        Case{"people", me + R"("name":"New","colour":1})", "colour"},
        Case{"people", me + R"("tokenLifetime":-1})", "tokenLifetime"},
        Case{"people", me + R"("tokenLifetime":true})", "tokenLifetime"},
        Case{"people", me + R"("grants":{}})", "grants"},
        Case{"people", me + R"("grants":[1]})", "grants[0]"},
        Case{"people", me + R"("grants":[{"product":"p","section":"s"}]})", "grants[0].actions"},
        Case{"people", me + R"("grants":[{"product":"p","section":"s","actions":[],"scope":{"a":1}}]})",
             "grants[0].scope"},
        Case{"tokens", "{}", "sub"},
        Case{"tokens", R"({"sub":"nobody"})", "sub"},
        Case{"tokens", me + R"("lifetime":1.5})", "lifetime"},
        Case{"sheets/auth0%7Cdemo", R"({"name":"x"})", "data"},
        Case{"sheets/auth0%7Cdemo", R"({"name":"x","data":{},"id":5})", "id"},
        Case{"sheets/auth0%7Cdemo", R"({"name":"x","data":{},"updatedAt":"today"})", "updatedAt"},
        Case{"faults", "{}", "path"},
        Case{"faults", R"({"path":"x"})", "path"},
        Case{"faults", R"({"path":"/"})", "status"},
        Case{"faults", R"({"path":"/","status":99})", "status"},
        Case{"faults", R"({"path":"/","status":500,"times":0})", "times"},
        Case{"faults", R"({"path":"/","cut":"wire"})", "cut"},
        Case{"faults", R"({"path":"/","match":"regex","status":500})", "match"},
        Case{"faults", R"({"path":"/","delayMs":5,"headers":{"A":"b"}})", "headers"},
        Case{"faults", R"({"path":"/","status":302,"headers":{"A":"b\r\nC: d"}})", "headers.A"}}) {
    const Reply reply = control("POST", each.path, each.body);
    EXPECT_EQ(reply.status, 400) << each.path << each.body;
    EXPECT_EQ(reply.at("field"), each.field) << each.body << reply.body;
    EXPECT_THAT(reply.at("error"), HasSubstr('"' + each.field + '"'));
  }
  EXPECT_EQ(control("POST", "people", "nonsense").status, 400);
  EXPECT_EQ(control("GET", "people").body, state);
  EXPECT_TRUE(cloud.faults().empty());
}

TEST_F(ControlTest, SheetsCanBePutListedAndDeletedForAPerson) {
  const std::string path = "sheets/auth0%7Cdemo";
  const Reply made = control("POST", path, R"({"name":"A","data":{"categories":[]},"id":4321,
                                               "updatedAt":"2024-05-01T10:00:00.250Z"})");
  EXPECT_EQ(made.at("id"), "4321");
  EXPECT_EQ(made.at("updatedAt"), "2024-05-01T10:00:00.250Z");
  EXPECT_EQ(control("POST", path, R"({"name":"B","data":{}})").at("id"), "4322");
  EXPECT_THAT(control("GET", path).at("sheets"), HasSubstr(R"("data":{"categories":[]})"));
  EXPECT_EQ(control("DELETE", path + "/4321").status, 200);
  EXPECT_EQ(control("DELETE", path + "/4321").status, 404);
  EXPECT_EQ(control("GET", "sheets/nobody").status, 404);
  EXPECT_EQ(control("DELETE", "people/auth0%7Cdemo").status, 200);
  EXPECT_EQ(control("GET", "people").body, R"({"people":[]})");
  EXPECT_THROW(cloud.issueTokens(demo), Failure);
}

TEST_F(ControlTest, WhatArrivedIsRecordedWithoutItsToken) {
  const std::string token = accessToken();
  sendAs(token, {"POST", "/api/user/sheets?draft=1", {"X-Mark: here"}, "{\"a\":\"\xC3\xA9\"}"});
  sendAs("x", {"POST", "/api/user/sheets", {}, "\xFF"});
  const Reply reply = control("GET", "requests?method=POST&path=/api/user/sheets");
  const JSONArray requests = reply.json().at("requests").as_array();
  ASSERT_EQ(requests.size(), 2U);
  const JSONMap& first = requests[0].as_object();
  EXPECT_EQ(json::stringOr(first, "query"), "draft=1");
  EXPECT_EQ(json::stringOr(first, "body"), "{\"a\":\"\xC3\xA9\"}");
  EXPECT_EQ(json::stringOr(*json::object(first, "headers"), "X-Mark"), "here");
  EXPECT_EQ(json::stringOr(*json::object(first, "headers"), "Authorization"), "Bearer " + tokenDigest(token));
  EXPECT_EQ(json::stringOr(requests[1].as_object(), "bodyBase64"), "/w==");
  EXPECT_EQ(reply.body.find(token), std::string::npos);
  control("DELETE", "requests");
  EXPECT_TRUE(cloud.requests().empty()) << "control requests themselves are not recorded";
}

TEST_F(ControlTest, TheRecordIsBounded) {
  // One connection for all of them.
  CURL* curl = curl_easy_init();
  const std::string url = cloud.plainBase() + "/n";
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
  for (int i = 0; i < 1005; ++i) ASSERT_EQ(curl_easy_perform(curl), CURLE_OK);
  curl_easy_cleanup(curl);
  EXPECT_EQ(cloud.requests().size(), 1000U);
  EXPECT_EQ(cloud.requests().front().number, 6);
}

TEST_F(ControlTest, WaitingEndsWithTheRequestThatWasWaitedForOrInTime) {
  auto inProcess = std::async(std::launch::async, [&] { return cloud.waitForRequests({.path = "/two"}, 2); });
  auto overHTTP = std::async(std::launch::async,
                             [&] { return control("GET", "requests?path=/two&atLeast=2&timeoutMs=10000"); });
  for (int i = 0; i < 2; ++i) send({.path = "/two"});
  EXPECT_EQ(inProcess.get().size(), 2U);
  EXPECT_EQ(overHTTP.get().json().at("requests").as_array().size(), 2U);
  EXPECT_THROW(cloud.waitForRequests({.path = "/two"}, 3, std::chrono::milliseconds(20)), TimeoutFailure);
  const Reply late = control("GET", "requests?path=/two&atLeast=3&timeoutMs=20");
  EXPECT_EQ(late.status, 408);
  EXPECT_THAT(late.at("error"), HasSubstr("2 arrived"));
  EXPECT_EQ(control("GET", "requests?atLeast=many").at("field"), "atLeast");
}

TEST_F(ControlTest, HundredsOfSleepersWaitTogether) {
  constexpr int sleepers = 300;
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> handles;
  const std::string url = cloud.plainBase() + "/__control/sleep?ms=500";
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < sleepers; ++i) {
    CURL* curl = handles.emplace_back(curl_easy_init());
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION,
        +[](char*, std::size_t size, std::size_t count, void*) { return size * count; });
    curl_multi_add_handle(multi, curl);
  }
  for (int running = 1; running > 0;) {
    ASSERT_EQ(curl_multi_perform(multi, &running), CURLM_OK);
    ASSERT_EQ(curl_multi_poll(multi, nullptr, 0, 1000, nullptr), CURLM_OK);
  }
  const auto took = std::chrono::steady_clock::now() - start;
  int answered = 0;
  for (CURL* curl : handles) {
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    answered += status == 200 ? 1 : 0;
    curl_multi_remove_handle(multi, curl);
    curl_easy_cleanup(curl);
  }
  curl_multi_cleanup(multi);
  EXPECT_EQ(answered, sleepers);
  EXPECT_LT(took, std::chrono::seconds(30)) << "one after another they would take 150 seconds";
}

}  // namespace
}  // namespace vorlane::devcloud
