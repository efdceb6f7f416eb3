#include "Spine.h"

#include "base/JSONArguments.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

namespace vorlane::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

void write(const fs::path& path, std::string_view text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

TEST(Programs, EndWithTwoAndOneLineThatNamesWhatIsWrong) {
  const TemporaryFolder folder;
  AgentProcess agent(folder.path());
  write(folder.path() / "key.json", R"({"surprise":1})");
  struct Case {
    const char* program;
    std::vector<std::string> words;
    std::string named;
  };
  const Case cases[] = {
      {"vorlane-agent", {"--headless", "--port", "x"}, "x"},
      {"vorlane-agent", {"--headless", "--deployment", "/nowhere/d.json"}, "/nowhere/d.json"},
      {"vorlane-agent", {"--headless", "--deployment", folder.path() / "key.json"}, "surprise"},
      {"vorlanectl", {}, "usage"},
      {"vorlanectl", {"dance"}, "dance"},
      {"vorlanectl", {"token", "--force"}, "--force"},
      {"vorlanectl", {"token", "--regenerate", "now"}, "now"},
      {"vorlanectl", {"signal", "shout", "x"}, "signal"},
      {"vorlanectl", {"--deployment", "/nowhere/d.json", "status"}, "/nowhere/d.json"},
  };
  for (const auto& [program, words, named] : cases) {
    const auto finished = runProgram(program, words, agent.environment());
    EXPECT_EQ(finished.exitCode, 2) << program << " " << named;
    EXPECT_THAT(finished.error, HasSubstr(named));
    EXPECT_EQ(std::ranges::count(finished.error, '\n'), 1) << finished.error;
    EXPECT_EQ(finished.out, "");
  }
  auto unknownVault = agent.environment();
  unknownVault["VORLANE_VAULT"] = "cellar";
  EXPECT_EQ(runProgram("vorlane-agent", {"--headless"}, unknownVault).exitCode, 2);
}

TEST(Programs, EndAtAContainerOfAnotherUserAndLeaveItAlone) {
  const TemporaryFolder folder;
  AgentProcess agent(folder.path());
  fs::path foreign = "/usr";
  std::string owner = "root";
  if (::geteuid() == 0) {
    fs::create_directory(foreign = folder.path() / "foreign");
    ASSERT_EQ(::chown(foreign.c_str(), 65534, 65534), 0);
    owner = "nobody";
  }
  auto environment = agent.environment();
  environment["VORLANE_CONTAINER"] = foreign;
  const std::pair<const char*, std::vector<std::string>> commands[] = {
      {"vorlane-agent", {"--headless", "--port", "0"}},
      {"vorlanectl", {"token"}},
      {"vorlanectl", {"checkpoint", "list", "--owner", "x"}}};
  for (const auto& [program, words] : commands) {
    const auto finished = runProgram(program, words, environment);
    EXPECT_EQ(finished.exitCode, 1) << words[0];
    EXPECT_EQ(finished.error, fmt::format("{}: The container {} belongs to the user {}.\n", program,
                                          foreign.string(), owner));
  }
  EXPECT_TRUE(::geteuid() != 0 || fs::is_empty(foreign));
}

TEST(Programs, ASecondStartHandsOverAndNeverTakesTheFirstOnesPlace) {
  const TemporaryFolder folder;
  AgentProcess agent(folder.path());
  agent.start();
  const auto second = runProgram("vorlane-agent", {"--headless"}, agent.environment());
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_THAT(second.error, HasSubstr("already running"));
  const auto handed = runProgram("vorlane-agent", {"mailto:x", "https://a.example/p?q"}, agent.environment());
  EXPECT_EQ(handed.exitCode, 0) << handed.error;
  EXPECT_TRUE(eventually([&] { return agent.log().find("https://a.example") != std::string::npos; }));
  EXPECT_THAT(agent.log(), HasSubstr("[AppDelegate] ignored URL mailto://\n"));
  EXPECT_EQ(agent.log().find("p?q"), std::string::npos);
  EXPECT_EQ(contents(folder.path() / "home/.config/vorlane/container"), agent.container().string() + "\n");

  AgentProcess relaunched(folder.path());
  relaunched.launch({"--port", "0", "--relaunch"});
  EXPECT_EQ(agent.stop(SIGTERM), 0);
  EXPECT_TRUE(eventually([&] {
    return parseJSONMap(runProgram("vorlanectl", {"status"}, agent.environment()).out)
        .at("running")
        .as_bool();
  }));
  EXPECT_EQ(relaunched.stop(SIGINT), 0);
}

TEST(Programs, CtlTellsTheStatusWithAndWithoutAnAgent) {
  Spine spine;
  spine.person("auth0|ana", true);
  spine.signIn("auth0|ana");
  auto status = spine.status();
  EXPECT_EQ(status.at("running"), false);
  EXPECT_EQ(status.at("mcpAccess"), false);
  EXPECT_EQ(status.at("account").at("sub"), "auth0|ana");
  EXPECT_EQ(status.at("endpoint"), nullptr);

  spine.agent.start();
  ASSERT_TRUE(spine.eventuallyAnswers(200));
  status = spine.status();
  EXPECT_EQ(status.at("running"), true);
  EXPECT_EQ(status.at("mcpAccess"), true);
  EXPECT_EQ(status.at("account").at("email"), "ana@example.com");
  EXPECT_EQ(json::stringOr(status, "endpoint"), fmt::format("http://127.0.0.1:{}/rpc", spine.agent.port()));
  EXPECT_EQ(json::stringOr(status, "store"), (spine.agent.container() / "Vorlane.sqlite").string());

  const auto environment = spine.agent.environment();
  const auto old = spine.token;
  const auto regenerated = parseJSONMap(runProgram("vorlanectl", {"token", "--regenerate"}, environment).out);
  spine.token = json::stringOr(regenerated, "token");
  EXPECT_EQ(spine.token.size(), 64U);
  EXPECT_NE(spine.token, old);
  EXPECT_EQ(post(spine.agent.port(), old, listTools).status, 401);
  EXPECT_EQ(post(spine.agent.port(), spine.token, listTools).status, 200);
  const auto block = parseJSONMap(runProgram("vorlanectl", {"client-config", "--http"}, environment).out);
  EXPECT_EQ(block.at("mcpServers").at("vorlane").at("headers").at("Authorization").as_string(),
            "Bearer " + spine.token);
  EXPECT_EQ(runProgram("vorlanectl", {"client-config"}, environment).out,
            "{\n  \"mcpServers\": {\n    \"vorlane\": {\n      \"command\": \"" VORLANE_BIN
            "/vorlane-mcp-launcher\"\n    }\n  }\n}\n");
}

TEST(Programs, SpoiltFilesNeverKeepTheAgentFromStarting) {
  const std::pair<const char*, const char*> cases[] = {
      {"vault/com.vorlane.auth/auth0-tokens", R"({"accessToken":1,"expiresAt":"soon","tokenType":true})"},
      {"config/group.com.vorlane.shared.json",
       R"({"com.vorlane.mcp_access":"true","com.vorlane.mcp_access.owner":7})"},
      {"config/com.vorlane.agent.json", "not json"},
      {"agent.sock", "not a socket"},
  };
  for (const auto& [file, bytes] : cases) {
    const TemporaryFolder folder;
    AgentProcess agent(folder.path());
    write(agent.container() / file, bytes);
    agent.start();
    EXPECT_EQ(post(agent.port(), agent.token(), listTools).status, 503) << file << ": " << bytes;
    EXPECT_EQ(agent.stop(SIGTERM), 0);
  }
}

TEST(Programs, ADatabaseThatIsNoneLeavesTheAgentUpAndTheFileUntouched) {
  const TemporaryFolder folder;
  AgentProcess agent(folder.path());
  const std::string bytes = "this is not a database, and it is somebody's only copy" + std::string(5000, '.');
  write(agent.container() / "Vorlane.sqlite", bytes);
  agent.launch({"--port", "0"});
  EXPECT_TRUE(eventually([&] { return agent.log().find("agent store open failed: ") != std::string::npos; }));
  const auto status = parseJSONMap(runProgram("vorlanectl", {"status"}, agent.environment()).out);
  EXPECT_EQ(status.at("endpoint"), nullptr);
  EXPECT_THAT(json::stringOr(status, "reason"), testing::StartsWith("agent store open failed: "));
  const auto block = runProgram("vorlanectl", {"client-config", "--http"}, agent.environment());
  EXPECT_EQ(block.exitCode, 1) << "the bearer token would go to whoever listens on the default port";
  EXPECT_EQ(block.error, "vorlanectl: the agent does not listen\n");
  EXPECT_EQ(contents(agent.container() / "Vorlane.sqlite"), bytes);
  EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST(Programs, WithoutHomeTheAgentStartsAndItsPortStaysClosed) {
  const TemporaryFolder folder;
  const auto log = folder.path() / "shell.log";
  AgentProcess agent(folder.path());
  agent.launchWith({"--port", "0"}, {{"VORLANE_SHELL_LOG", log}, {"VORLANE_VAULT", "file"}});
  EXPECT_TRUE(eventually([&] {
    return contents(log).find(
               "agent store open failed: App Group container unavailable for group.com.vorlane.shared") !=
           std::string::npos;
  })) << contents(log);
  EXPECT_TRUE(agent.running());
  EXPECT_EQ(agent.stop(SIGTERM), 0);
}

TEST(Programs, SignalsReachAnotherProcess) {
  const TemporaryFolder folder;
  AgentProcess agent(folder.path());
  BackgroundProgram watcher("vorlanectl", {"signal", "watch", "com.vorlane.test"}, agent.environment());
  EXPECT_TRUE(eventually([&] {
    runProgram("vorlanectl", {"signal", "post", "com.vorlane.test"}, agent.environment());
    return watcher.out().starts_with("{\"signal\":\"com.vorlane.test\"}\n");
  }));
}

}  // namespace
}  // namespace vorlane::test
