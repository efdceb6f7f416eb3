#include "devcloud/CloudFixture.h"

#include <future>

namespace vorlane::devcloud {
namespace {

class ControlTest : public CloudFixture {
 protected:
  const std::string sheets = "/api/user/sheets";
  const Call create{"POST", sheets, R"({"name":"x","data":{}})"};
};

TEST_F(ControlTest, SheetsCanBePutListedAndDeletedForAPerson) {
  const std::string path = "sheets/auth0%7Cdemo";
  control("POST", path, R"({"name":"A","data":{"a":[]},"id":4321,"updatedAt":"2024-05-01T10:00:00.250Z"})");
  EXPECT_EQ(control("POST", path, R"({"name":"B","data":{}})").at("id"), "4322");
  EXPECT_EQ(control("GET", path).at("sheets/1/updatedAt"), "2024-05-01T10:00:00.250Z");
  EXPECT_EQ(control("DELETE", path + "/4321").status, 200);
  EXPECT_EQ(control("GET", path).at("sheets/1"), "");
}

TEST_F(ControlTest, WhatArrivedIsRecordedWithoutItsToken) {
  sendAs(token, {"POST", sheets + "?draft=1", "{\"a\":\"\xC3\xA9\"}"});
  sendAs("x", {"POST", sheets, "\xFF"});
  sendAs(token, {.path = sheets});
  const Reply reply = control("GET", "requests?method=POST&path=/api/user/sheets");
  EXPECT_EQ(reply.at("requests/0/query"), "draft=1");
  EXPECT_EQ(reply.at("requests/0/body"), "{\"a\":\"\xC3\xA9\"}");
  EXPECT_EQ(reply.at("requests/0/headers/Authorization"), "Bearer " + tokenDigest(token));
  EXPECT_EQ(reply.at("requests/1/bodyBase64"), "/w==");
  EXPECT_EQ(reply.at("requests/2"), "");
  EXPECT_EQ(reply.body.find(token), std::string::npos);
  control("DELETE", "requests");
  EXPECT_TRUE(cloud.call(&RequestLog::find, {}).empty()) << "control requests themselves are not recorded";

  RequestLog log;
  for (int i = 0; i < 1005; ++i) log.record({.body = std::string(i == 1004 ? 2 << 20 : 1, 'x')}, now());
  EXPECT_EQ(log.find({}).front().number, 6) << "the latest thousand stay";
  EXPECT_EQ(log.find({}).back().body.size(), std::size_t{1} << 20);
}

TEST_F(ControlTest, WaitingEndsWithTheRequestThatWasWaitedForOrInTime) {
  auto inProcess = std::async(std::launch::async, [&] {
    return cloud.call(&RequestLog::waitFor, {.path = "/two"}, 2, std::chrono::seconds(10));
  });
  auto overHTTP = std::async(std::launch::async,
                             [&] { return control("GET", "requests?path=/two&atLeast=2&timeoutMs=10000"); });
  for (int i = 0; i < 2; ++i) send({.path = "/two"});
  EXPECT_EQ(inProcess.get().size(), 2U);
  EXPECT_EQ(overHTTP.get().at("requests/1/path"), "/two");
  EXPECT_THROW(cloud.call(&RequestLog::waitFor, {.path = "/two"}, 3, std::chrono::milliseconds(20)),
               TimeoutFailure);
}

TEST_F(ControlTest, EachFaultGoesWrongInItsOwnWay) {
  const std::tuple<std::string, long, bool, std::string, std::size_t> cases[] = {
      {R"("status":503)", 503, false, "", 0},
      {R"("status":200,"json":[{}])", 200, false, "[{}]", 0},
      {R"("json":{"sheet":{"id":"x"}},"effect":true)", 200, false, R"({"sheet":{"id":"x"}})", 1},
      {R"("redirect":"https://127.0.0.1:1/")", 302, false, "", 0},
      {R"("garbage":true)", 200, false, "\xFF\xFE", 0},
      {R"("cut":"before")", 0, true, "", 0},
      {R"("cut":"after")", 0, true, "", 1},
      {R"("cut":"body")", 201, true, R"({"sheet":)", 1},
      {R"("cut":"body","status":200,"body":"0123456789")", 200, true, "01234", 0},
      {R"("delayMs":30)", 201, false, R"("success":true)", 1},
  };
  for (const auto& [fault, status, fails, body, made] : cases) {
    ASSERT_EQ(control("POST", "faults", R"({"path":"/api/user/sheets",)" + fault + "}").status, 200);
    const std::size_t before = cloud.call(&Sheets::ownedBy, demo).size();
    const auto start = std::chrono::steady_clock::now();
    const Reply reply = sendAs(token, create);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(reply.status, status) << fault;
    EXPECT_EQ(reply.failed, fails) << fault;
    EXPECT_THAT(reply.body, HasSubstr(body)) << fault;
    EXPECT_EQ(cloud.call(&Sheets::ownedBy, demo).size() - before, made) << fault;
    if (fault.starts_with("\"delay")) EXPECT_GE(took, std::chrono::milliseconds(30));
    if (status / 100 == 3) EXPECT_THAT(reply.head, HasSubstr("Location: https://127.0.0.1:1/"));
    EXPECT_TRUE(cloud.call(&Faults::all).empty()) << "one request uses it up";
  }
  EXPECT_EQ(cloud.call(&RequestLog::find, {.path = sheets}).size(), std::size(cases))
      << "what goes wrong is recorded as well";
}

TEST_F(ControlTest, AFaultMeetsItsOwnRequestsAndNoOthersInTheOrderGiven) {
  cloud.call(&Faults::add, {.path = "/api/user", .prefix = true, .method = "PUT", .status = 500});
  cloud.call(&Faults::add, {.path = sheets, .times = 2, .status = 501});
  const std::int64_t third =
      cloud.call(&Faults::add, {.path = "/", .prefix = true, .times = 9, .status = 502});
  EXPECT_EQ(sendAs(token, create).status, 501);
  EXPECT_EQ(sendAs(token, {"PUT", sheets + "/1"}).status, 500);
  EXPECT_EQ(sendAs(token, {.path = sheets + "/1"}).status, 502);
  EXPECT_EQ(sendAs(token, create).status, 501);
  EXPECT_EQ(sendAs(token, create).status, 502);
  EXPECT_EQ(control("DELETE", "faults/" + std::to_string(third)).status, 200);
  EXPECT_EQ(sendAs(token, create).status, 201);
}

TEST_F(ControlTest, AHeldRequestWaitsUntilItIsLetGoOrTheCloudStops) {
  const std::function<void()> ends[] = {[this] { cloud.call(&Faults::release); },
                                        [this] { control("POST", "faults/release"); },
                                        [this] { cloud.stop(); }};
  for (const auto& end : ends) {
    cloud.call(&RequestLog::clear);
    cloud.call(&Faults::add, {.path = sheets, .times = 100, .hold = true});
    const std::size_t before = cloud.call(&Sheets::ownedBy, demo).size();
    std::vector<std::future<Reply>> held(100);
    for (auto& each : held) each = std::async(std::launch::async, [&] { return sendAs(token, create); });
    cloud.call(&RequestLog::waitFor, {.path = sheets}, 100, std::chrono::seconds(10));
    EXPECT_EQ(cloud.call(&Sheets::ownedBy, demo).size(), before) << "the handler has not run";
    end();
    const bool stopped = &end == &ends[2];
    for (auto& each : held) EXPECT_EQ(each.get().status, stopped ? 0 : 201);
  }
  EXPECT_THROW(cloud.call(&Sheets::ownedBy, demo), Failure);
}

}  // namespace
}  // namespace vorlane::devcloud
