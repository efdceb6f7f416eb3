#include "shell/AppDelegate.h"

#include "auth/AuthTokens.h"
#include "base/Encodings.h"
#include "base/JSONArguments.h"
#include "support/FakePlatform.h"
#include "support/RawClient.h"
#include "support/TaskHarness.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace vorlane {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

/// The cloud, as far as the start of an agent needs it: the person has access, and no documents.
Task<URLResponse> answerOfCloud(URLRequest request) {
  URLResponse response{.status = 200, .url = request.url, .headers = {}, .body = R"({"success":true})"};
  if (request.url.ends_with("/api/user/profile")) {
    response.body = R"({"success":true,"profile":{"mcpAccess":true}})";
  }
  co_return response;
}

/// The whole agent in this process: only its store and its sockets are the system's.
class AppDelegateTest : public ::testing::Test {
 protected:
  AppDelegateTest() {
    settings.paths.container = folder.path();
    settings.deployment.ledgerlyBase = "https://ledgerly.test";
    settings.deployment.scenewardBase = "https://sceneward.test";
    settings.port = 0;
    loop = std::thread([this] { main->run(); });
  }
  ~AppDelegateTest() override {
    if (agent)
      testing::await<bool>(main->executor(), [this]() -> Task<bool> {
        co_await agent->stop();
        co_return true;
      });
    main->stop();
    loop.join();
    runtime.stop();
  }

  void signIn(const std::string& sub) {
    const auto part = [](std::string_view text) { return base64URLEncoded(text); };
    const auto token = part(R"({"alg":"none"})") + "." + part(R"({"sub":")" + sub + R"("})") + ".c2ln";
    const AuthTokens tokens{token, token, "refresh", now() + 1h, "Bearer"};
    platform.vault->plant({"com.vorlane.auth", "auth0-tokens"}, tokens.storedText());
  }
  void start() {
    agent = std::make_unique<AppDelegate>(settings, platform.value(), runtime, *main);
    agent->applicationDidFinishLaunching({});
  }
  JSONMap status() {
    return testing::await<JSONMap>(runtime.concurrent(), [this] { return agent->status(); });
  }
  bool comesToServe() {
    return eventually([this] { return json::booleanOr(status(), "serving", false); });
  }

  testing::TemporaryFolder folder;
  testing::FakePlatform platform{answerOfCloud};
  AgentSettings settings;
  Runtime runtime;
  std::unique_ptr<MainLoop> main = makeHeadlessMainLoop();
  std::thread loop;
  std::unique_ptr<AppDelegate> agent;
};

TEST_F(AppDelegateTest, ServesAPersonWithAccessOverItsSocket) {
  signIn("auth0|ana");
  start();
  ASSERT_TRUE(comesToServe());
  RawClient assistant(folder.path("mcp.sock"));
  assistant.send(
      R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"ledgerly_create_sheet","arguments":{"title":"Night"}}})"
      "\n");
  EXPECT_THAT(assistant.receiveLine(), HasSubstr("Night"));
  const auto shown = status();
  EXPECT_EQ(shown.at("account").at("sub"), "auth0|ana");
  EXPECT_EQ(shown.at("pending").at("sheets"), 1);
  EXPECT_FALSE(shown.contains("reason"));
}

TEST_F(AppDelegateTest, SaysWhyItDoesNotServe) {
  start();
  EXPECT_TRUE(eventually([this] { return json::stringOr(status(), "reason") == "nobody is signed in"; }));
}

TEST_F(AppDelegateTest, GoesOnWithoutAStoreAndSaysWhatKeepsItShut) {
  std::filesystem::create_directory(folder.path("Vorlane.sqlite"));
  start();
  EXPECT_TRUE(eventually([this] {
    return json::stringOr(status(), "reason").starts_with("agent store open failed: ");
  })) << writeJSON(status());
}

}  // namespace
}  // namespace vorlane
