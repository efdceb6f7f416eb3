#include "devcloud/CloudFixture.h"

#include <gmock/gmock.h>

#include <future>

namespace vorlane::devcloud {
namespace {

using testing::HasSubstr;

class FaultsTest : public CloudFixture {
 protected:
  const std::string sheets = "/api/user/sheets";
  const Call create{"POST", sheets, {}, R"({"name":"x","data":{}})"};
};

TEST_F(FaultsTest, EachKindGoesWrongInItsOwnWay) {
  const std::string token = accessToken();
  struct Case {
    std::string fault;
    long status;
    bool fails;
    std::string body;
    std::size_t made;
  };
  for (const Case& each :
       {Case{R"("status":503)", 503, false, "", 0},
        Case{R"("status":429,"body":"slow down")", 429, false, "slow down", 0},
        Case{R"("status":200,"json":{"sheet":{}})", 200, false, R"({"sheet":{}})", 0},
        Case{R"("status":302,"headers":{"Location":"https://127.0.0.1:1/"})", 302, false, "", 0},
        Case{R"("garbage":true)", 200, false, "\xFF\xFE", 0},
        Case{R"("status":500,"garbage":true)", 500, false, "\xFF\xFE", 0},
        Case{R"("cut":"before")", 0, true, "", 0}, Case{R"("cut":"after")", 0, true, "", 1},
        Case{R"("cut":"body")", 201, true, R"({"sheet":)", 1},
        Case{R"("cut":"body","status":200,"body":"0123456789")", 200, true, "01234", 0},
        Case{R"("delayMs":30)", 201, false, R"("success":true)", 1}}) {
    ASSERT_EQ(control("POST", "faults", R"({"path":"/api/user/sheets",)" + each.fault + "}").status, 200);
    const std::size_t before = cloud.sheets(demo).size();
    const auto start = std::chrono::steady_clock::now();
    const Reply reply = sendAs(token, create);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(reply.status, each.status) << each.fault;
    EXPECT_EQ(reply.failure.has_value(), each.fails) << each.fault << reply.failure.value_or("");
    EXPECT_THAT(reply.body, HasSubstr(each.body)) << each.fault;
    EXPECT_EQ(cloud.sheets(demo).size() - before, each.made) << each.fault;
    if (each.fault.starts_with("\"delay")) EXPECT_GE(took, std::chrono::milliseconds(30));
    if (each.status == 302) EXPECT_THAT(reply.head, HasSubstr("Location: https://127.0.0.1:1/"));
    EXPECT_TRUE(cloud.faults().empty()) << "one request uses it up";
  }
  EXPECT_EQ(sendAs(token, create).status, 201);
  EXPECT_EQ(cloud.requests({.path = sheets}).size(), 12U) << "what goes wrong is recorded as well";
}

TEST_F(FaultsTest, AFaultMeetsItsOwnRequestsAndNoOthersInTheOrderGiven) {
  cloud.addFault({.path = "/api/user", .prefix = true, .method = "PUT", .status = 500});
  cloud.addFault({.path = sheets, .times = 2, .status = 501});
  const std::int64_t third = cloud.addFault({.path = "/", .prefix = true, .times = 9, .status = 502});
  const std::string token = accessToken();
  EXPECT_EQ(sendAs(token, create).status, 501);
  EXPECT_EQ(sendAs(token, {"PUT", sheets + "/1"}).status, 500);
  EXPECT_EQ(sendAs(token, {.path = sheets + "/1"}).status, 502);
  EXPECT_EQ(sendAs(token, create).status, 501);
  EXPECT_EQ(sendAs(token, create).status, 502);
  const Reply list = control("GET", "faults");
  EXPECT_THAT(list.body, HasSubstr(R"("times":7)")) << list.body;
  EXPECT_EQ(control("DELETE", "faults/" + std::to_string(third)).status, 200);
  EXPECT_EQ(control("DELETE", "faults/" + std::to_string(third)).status, 404);
  EXPECT_EQ(sendAs(token, create).status, 201);
}

TEST_F(FaultsTest, AHeldRequestWaitsUntilItIsLetGo) {
  for (const bool overHTTP : {false, true}) {
    cloud.clearRequests();
    cloud.addFault({.path = sheets, .hold = true});
    auto held = std::async(std::launch::async, [&] { return sendAs(accessToken(), create); });
    const std::size_t before = cloud.sheets(demo).size();
    cloud.waitForRequests({.path = sheets}, 1);
    EXPECT_EQ(cloud.sheets(demo).size(), before) << "the handler has not run";
    if (overHTTP) {
      control("POST", "faults/release");
    } else {
      cloud.release();
    }
    EXPECT_EQ(held.get().status, 201);
  }
}

TEST_F(FaultsTest, StoppingDropsWhatIsHeld) {
  cloud.addFault({.path = "/", .prefix = true, .times = 20, .hold = true});
  std::vector<std::future<Reply>> held;
  for (int i = 0; i < 10; ++i) {
    held.push_back(std::async(std::launch::async, [&] { return send({.path = "/x"}); }));
  }
  cloud.waitForRequests({.path = "/x"}, 10);
  cloud.stop();
  for (auto& each : held) EXPECT_TRUE(each.get().failure.has_value());
  EXPECT_THROW(cloud.sheets(demo), Failure);
}

}  // namespace
}  // namespace vorlane::devcloud
