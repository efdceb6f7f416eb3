#include "devcloud/CloudFixture.h"
#include "devcloud/Files.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

namespace vorlane::devcloud {
namespace {

namespace fs = std::filesystem;

using LifetimeTest = CloudFixture;

TEST_F(LifetimeTest, ARestartKeepsPeopleTokensKeysAndCertificates) {
  cloud.call(&People::put, {.sub = "p", .email = "p@x", .admin = true, .role = "owner", .isOwner = false});
  const IssuedTokens tokens = cloud.call(&Identity::issue, "p", {});
  const std::string authority = readFile(cloud.caFile()).value();
  const std::string people = control("GET", "people").body;
  cloud.stop();
  EXPECT_THAT(readFile(directory / "state.json").value(), testing::Not(HasSubstr(tokens.refreshToken)));
  EXPECT_EQ(fs::status(directory).permissions(), fs::perms::owner_all);
  for (const char* secret : {"server-key.pem", "signing-key.pem", "state.json"}) {
    EXPECT_EQ(fs::status(directory / secret).permissions(), fs::perms(0600)) << secret;
  }
  start();
  EXPECT_EQ(readFile(cloud.caFile()).value(), authority);
  EXPECT_EQ(control("GET", "people").body, people);
  EXPECT_EQ(sendAs(tokens.accessToken, {.path = "/api/user/profile"}).at("profile/email"), "p@x");
  EXPECT_EQ(refresh(tokens.refreshToken).status, 200);
}

TEST_F(LifetimeTest, WhatWasAnsweredIsThereAfterARestartAndAfterAKill) {
  const std::string id = "0b6d7a5e-3c1f-4f0e-9a55-7d2f1c8e4b01";
  const Commit commit{.operationID = "o", .checkpointID = "c", .contentHash = "h", .payloadHash = "p"};
  cloud.call(&Projects::put, {.id = id, .owner = demo, .name = "P", .revision = 5, .commits = {commit}});
  const std::int64_t first = cloud.call(&Sheets::put, {.owner = demo, .name = "A"}).id;
  const Sheet second = cloud.call(&Sheets::put, {.owner = demo, .name = "B"});
  sendAs(token, {"PUT", "/api/user/sheets/" + std::to_string(first), R"({"name":"A 2"})"});
  cloud.call(&Sheets::remove, demo, second.id);
  cloud.call(&Attachments::put, {.owner = demo, .name = "n.txt", .bytes = "\xFF"});
  cloud.call(&AILists::add, {.owner = demo, .name = "L"});
  cloud.call(&People::put, {.sub = "q"});
  cloud.call(&AILists::add, {.owner = "q", .name = "gone"});
  cloud.call(&People::remove, "q");
  const std::string refreshToken =
      refresh(cloud.call(&Identity::issue, demo, {}).refreshToken).at("refresh_token");

  // What a kill leaves: the files as they are now, and half a line that was never answered for.
  const fs::path killed = folder / "killed";
  const std::int64_t third = cloud.call(&Sheets::put, {.owner = demo, .name = "C"}).id;
  fs::copy(directory, killed, fs::copy_options::recursive);
  std::ofstream(killed / "journal.jsonl", std::ios::app) << R"({"sheets":{"removed":[10)";
  cloud.stop();

  for (const fs::path& each : {directory, killed}) {
    DevCloud again({.directory = each});
    again.start();
    EXPECT_EQ(again.call(&Projects::ownedBy, demo).at(0).revision, 5) << each;
    EXPECT_EQ(again.call(&Projects::commits, demo).at(0).operationID, "o");
    ASSERT_EQ(again.call(&Sheets::ownedBy, demo).size(), 2U);
    EXPECT_EQ(again.call(&Sheets::ownedBy, demo)[0].id, third);
    EXPECT_EQ(again.call(&Sheets::ownedBy, demo)[1].name, "A 2");
    EXPECT_EQ(again.call(&Sheets::put, {.owner = demo, .name = "D"}).id, third + 1) << "no id comes twice";
    EXPECT_EQ(again.call(&Attachments::ownedBy, demo).back().bytes, "\xFF");
    EXPECT_TRUE(again.call(&AILists::ownedBy, "q").empty());
    EXPECT_EQ(again.call(&AILists::ownedBy, demo).at(0).id, 1);
    EXPECT_EQ(again.call(&AILists::add, {.owner = demo, .name = "M"}).id, 3);
    again.stop();
  }
  start();
  EXPECT_EQ(refresh(refreshToken).status, 200);
}

TEST_F(LifetimeTest, WhatStandsInTheWayOfAStartIsNamed) {
  const auto starting = [](const DevCloudOptions& options) { return [=] { DevCloud(options).start(); }; };
  const auto failsNaming = [](const auto& text) { return testing::ThrowsMessage<Failure>(HasSubstr(text)); };
  EXPECT_THAT(starting({.directory = directory}), failsNaming("another local cloud"));
  EXPECT_THAT(starting({.directory = folder / "b", .port = cloud.port()}),
              failsNaming(std::to_string(cloud.port())));
  const fs::path other = folder / "d";
  fs::create_directories(other);
  for (const auto& [file, bad] :
       {std::pair("journal.jsonl", "{\n{}\n"), {"state.json", R"({"people":[{"odd":1}]})"}}) {
    replaceFile(other / file, bad, 0600);
    EXPECT_THAT(starting({.directory = other}), failsNaming(std::string(file) + " cannot be read"));
    EXPECT_EQ(readFile(other / file).value(), bad) << "nothing is lost";
  }
}

TEST_F(LifetimeTest, TheProgramEndsWithZeroAtASignalWithOneWhenItCannotStartAndWithTwoOtherwise) {
  const std::tuple<std::string, int, std::string> cases[] = {
      {"", 2, "usage: vorlane-devcloud --dir DIR"},
      {"--dir x --port 70000", 2, "not \"70000\""},
      {"--dir /dev/null/x --port 0", 1, "cannot make /dev/null/x"},
      {"--dir own --port 0 >out & read line <out; kill -TERM $!; wait $! && echo $line >&2", 0, "ready"},
  };
  for (const auto& [arguments, code, named] : cases) {
    const std::string program = "exec 2>said; test -p out || mkfifo out; '" DEVCLOUD_PROGRAM "' ";
    const int end = std::system(("cd '" + folder.string() + "'; " + program + arguments).c_str());
    EXPECT_EQ(WEXITSTATUS(end), code) << arguments;
    const std::string said = readFile(folder / "said").value();
    EXPECT_THAT(said, HasSubstr(named)) << arguments;
    EXPECT_EQ(std::ranges::count(said, '\n'), 1) << said;
  }
}

}  // namespace
}  // namespace vorlane::devcloud
