#include "base/JsonArguments.h"
#include "devcloud/Certificates.h"
#include "devcloud/CloudFixture.h"
#include "devcloud/Files.h"

#include <gmock/gmock.h>

#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdio>

namespace vorlane::devcloud {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

class LifetimeTest : public CloudFixture {
 protected:
  fs::path directory() const { return folder.path / "cloud"; }
};

fs::perms modeOf(const fs::path& path) {
  return fs::status(path).permissions();
}

TEST_F(LifetimeTest, ARestartKeepsPeopleTokensSheetsKeysAndCertificates) {
  cloud.putPerson({.sub = "p", .email = "p@x", .admin = true, .role = "owner", .isOwner = false});
  const IssuedTokens tokens = cloud.issueTokens("p");
  const Sheet sheet = cloud.putSheet({.owner = "p", .name = "Kept", .data = {{"price", 4.0}}});
  const std::string authority = readFile(cloud.caFile()).value();
  const std::string people = control("GET", "people").body;
  cloud.stop();
  EXPECT_THAT(readFile(directory() / "state.json").value(), testing::Not(HasSubstr(tokens.refreshToken)));
  start();
  EXPECT_EQ(readFile(cloud.caFile()).value(), authority);
  EXPECT_EQ(control("GET", "people").body, people);
  EXPECT_EQ(sendAs(tokens.accessToken, {.path = "/api/user/profile"}).at("profile.email"), "p@x");
  EXPECT_EQ(refresh(tokens.refreshToken).status, 200);
  ASSERT_EQ(cloud.sheets("p").size(), 1U);
  EXPECT_EQ(writeJSON(cloud.sheets("p")[0].json()), writeJSON(sheet.json()));
  EXPECT_EQ(cloud.putSheet({.owner = demo, .name = "Next"}).id, sheet.id + 1);
}

TEST_F(LifetimeTest, AChangeIsOnDiskSoonWithoutAStop) {
  cloud.putPerson({.sub = "soon"});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::string state;
  while (state.find("soon") == std::string::npos && std::chrono::steady_clock::now() < deadline) {
    state = readFile(directory() / "state.json").value_or("");
  }
  EXPECT_THAT(state, HasSubstr("\"soon\""));
}

TEST_F(LifetimeTest, TheFolderHoldsWhatAnAgentNeedsAndNoReadableSecret) {
  const JSONMap deployment = parseJSONMap(readFile(cloud.deploymentFile()).value());
  const std::string port = std::to_string(cloud.port());
  const auto text = [&](std::string_view key) { return json::stringOr(deployment, key); };
  EXPECT_EQ(text("identityDomain"), "127.0.0.1:" + port);
  EXPECT_THAT(text("identityAudience"), testing::StartsWith("https://"));
  EXPECT_EQ(text("ledgerlyBase"), "https://127.0.0.1:" + port);
  EXPECT_EQ(text("scenewardBase"), text("ledgerlyBase"));
  EXPECT_EQ(text("caFile"), (directory() / "ca.pem").string());
  EXPECT_EQ(text("adminClaimHost"), "vorlane.test");
  EXPECT_TRUE(json::booleanOr(deployment, "assumeOnline", false));
  EXPECT_NE(json::array(deployment, "adminEmails"), nullptr);
  EXPECT_EQ(cloud.plainPort(), cloud.port() + 1);

  constexpr fs::perms ownerOnly = fs::perms::owner_read | fs::perms::owner_write;
  EXPECT_EQ(modeOf(directory()), fs::perms::owner_all);
  cloud.stop();
  for (const char* secret : {"server-key.pem", "signing-key.pem", "state.json"}) {
    EXPECT_EQ(modeOf(directory() / secret), ownerOnly) << secret;
  }
}

TEST_F(LifetimeTest, WhatStandsInTheWayOfAStartIsNamed) {
  const auto startFailure = [](const DevCloudOptions& options) -> std::string {
    DevCloud other(options);
    try {
      other.start();
    } catch (const Failure& failure) {
      return failure.description();
    }
    return "";
  };
  EXPECT_THAT(startFailure({.directory = directory()}), HasSubstr("another local cloud"));
  EXPECT_THAT(startFailure({.directory = folder.path / "b", .port = cloud.port()}),
              HasSubstr(std::to_string(cloud.port())));
  EXPECT_THAT(
      startFailure({.directory = folder.path / "c", .port = static_cast<std::uint16_t>(cloud.port() - 1)}),
      HasSubstr("cannot listen"));
  for (const char* bad : {"{", "[]", "{}", R"({"people":[1],"refreshTokens":[],"sheets":{}})",
                          R"({"people":[{"sub":"x","odd":1}],"refreshTokens":[],"sheets":{}})"}) {
    const fs::path other = folder.path / "d";
    fs::create_directories(other);
    replaceFile(other / "state.json", bad, 0600);
    EXPECT_THAT(startFailure({.directory = other}), HasSubstr("state.json cannot be read")) << bad;
    EXPECT_EQ(readFile(other / "state.json").value(), bad) << "nothing is lost";
  }
  replaceFile(folder.path / "file", "", 0600);
  EXPECT_THAT(startFailure({.directory = folder.path / "file" / "x"}), HasSubstr("cannot make"));
}

TEST(CertificatesTest, AreKeptWhileGoodAndRemadeWhenTheyEndOrDoNotFit) {
  const TemporaryFolder folder;
  const Date today = now();
  const Certificates first = loadOrMakeCertificates(folder.path, today);
  EXPECT_EQ(loadOrMakeCertificates(folder.path, today + std::chrono::days(800)).server, first.server);
  const Certificates late = loadOrMakeCertificates(folder.path, today + std::chrono::days(820));
  EXPECT_NE(late.server, first.server);
  EXPECT_NE(late.authority, first.authority);

  const std::pair<const char*, std::string> spoilt[] = {
      {"ca.pem", first.authority}, {"server.pem", ""}, {"server-key.pem", first.serverKey}};
  for (const auto& [name, content] : spoilt) {
    const std::string before = loadOrMakeCertificates(folder.path, today).server;
    replaceFile(folder.path / name, content, 0600);
    const Certificates made = loadOrMakeCertificates(folder.path, today);
    EXPECT_NE(made.server, before) << name;
    EXPECT_EQ(readFile(folder.path / "server-key.pem").value(), made.serverKey);
  }
}

/// Runs a shell line and gives what it printed and how it ended.
std::pair<std::string, int> shell(const std::string& line) {
  FILE* pipe = popen(line.c_str(), "r");
  std::string out;
  std::array<char, 512> chunk{};
  while (std::fgets(chunk.data(), chunk.size(), pipe)) out += chunk.data();
  return {out, WEXITSTATUS(pclose(pipe))};
}

TEST(ProgramTest, AWrongOptionEndsWithTwoAndOneLineThatNamesIt) {
  const std::string program = DEVCLOUD_PROGRAM;
  const std::pair<const char*, const char*> cases[] = {
      {"", "--dir is missing"},
      {"--dir", "--dir needs a value"},
      {"--dir /tmp/x --port", "--port needs a value"},
      {"--port 70000", "not \"70000\""},
      {"--dir x --port 1a", "not \"1a\""},
      {"--dir x --colour red", "unknown option \"--colour\""}};
  for (const auto& [arguments, named] : cases) {
    const auto [out, code] = shell("'" + program + "' " + arguments + " 2>&1");
    EXPECT_EQ(code, 2) << arguments;
    EXPECT_THAT(out, HasSubstr(named)) << arguments;
    EXPECT_EQ(std::ranges::count(out, '\n'), 1) << out;
  }
}

TEST(ProgramTest, ItSaysReadyServesAndEndsCleanlyAtASignal) {
  const TemporaryFolder folder;
  for (const int signal : {SIGTERM, SIGINT}) {
    // The shell tells its process id and then becomes the program.
    const std::string line =
        "echo $$; exec '" + std::string(DEVCLOUD_PROGRAM) + "' --port 0 --dir '" + folder.path.string() + "'";
    FILE* pipe = popen(line.c_str(), "r");
    std::array<char, 64> text{};
    ASSERT_NE(std::fgets(text.data(), text.size(), pipe), nullptr);
    const auto process = static_cast<pid_t>(std::atoi(text.data()));
    ASSERT_NE(std::fgets(text.data(), text.size(), pipe), nullptr);
    EXPECT_STREQ(text.data(), "ready\n");
    EXPECT_TRUE(fs::exists(folder.path / "deployment.json"));
    kill(process, signal);
    EXPECT_EQ(pclose(pipe), 0);
  }
}

}  // namespace
}  // namespace vorlane::devcloud
