#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/tasks/Moment.h"
#include "platform/Platform.h"
#include "support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace vorlane {
namespace {

using ::testing::HasSubstr;

constexpr char file[] = "config/com.vorlane.agent.json";

struct UserDefaultsTest : ::testing::Test {
  testing::TemporaryFolder folder;
  std::unique_ptr<UserDefaults> defaults = make();

  std::unique_ptr<UserDefaults> make() const {
    return makeUserDefaults(folder.path("config"), "com.vorlane.agent");
  }
};

TEST_F(UserDefaultsTest, EachTypeIsWrittenInItsFormAndReadByOthersAtOnce) {
  const DefaultsData bytes{std::string("\0\xff", 2)};
  const auto reader = make();
  defaults->apply({{"b", true}, {"i", std::int64_t{-9}}, {"s", "é"}, {"d", bytes}});
  EXPECT_EQ(folder.read(file), R"({"b":true,"d":{"data":"AP8="},"i":-9,"s":"é"})");
  EXPECT_EQ(folder.mode(file), 0600U);
  EXPECT_EQ(folder.mode("config"), 0700U);
  EXPECT_EQ(reader->boolean("b"), true);
  EXPECT_EQ(reader->integer("i"), -9);
  EXPECT_EQ(reader->string("s"), "é");
  EXPECT_EQ(reader->data("d"), bytes);
  EXPECT_FALSE(reader->integer("b"));
  defaults->apply({{"b", std::nullopt}, {"never", std::nullopt}, {"i", std::int64_t{1}}});
  EXPECT_FALSE(reader->value("b"));
  EXPECT_EQ(reader->integer("i"), 1);
}

TEST_F(UserDefaultsTest, AndFileSecretsAreAskedForOnceInAMomentAndAnewAfterIt) {
  const SecretItem item{"service", "account"};
  const auto secrets = makeFileVault(folder.path("vault")), others = makeFileVault(folder.path("vault"));
  const auto reader = make();
  auto change = [&, round = 0]() mutable {
    defaults->apply({{"i", std::int64_t{++round}}});
    others->remove(item);
    others->add(item, std::to_string(round));
  };
  change();
  const Moment moment;
  const auto stamp = secrets->stamp(item);
  EXPECT_EQ(reader->integer("i"), 1);
  change();
  EXPECT_EQ(reader->integer("i"), 1);
  EXPECT_EQ(secrets->stamp(item), stamp);
  Moment::end();
  EXPECT_EQ(reader->integer("i"), 2);
  EXPECT_NE(secrets->stamp(item), stamp);
}

TEST_F(UserDefaultsTest, WhatThisBuildDoesNotKnowAndALinkSurviveAWrite) {
  folder.write("own.json", R"({"float": 1.5, "list": [1, {"x": null}], "map": {"data": 7}, "s": "a"})");
  std::filesystem::create_directory(folder.path("config"));
  folder.link(file, "own.json");
  for (const auto* key : {"float", "list", "map"}) EXPECT_FALSE(defaults->value(key)) << key;
  defaults->apply({{"s", "b"}});
  EXPECT_EQ(folder.read("own.json"), R"({"float":1.5,"list":[1,{"x":null}],"map":{"data":7},"s":"b"})");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path(file)));
}

TEST_F(UserDefaultsTest, AFileThatIsNoObjectReadsAsEmptyOnceLoggedAndIsMovedAsideByAWrite) {
  for (const auto* broken : {"{\"s\": \"a", "[1]", "", "\xff\xfe"}) {
    std::filesystem::remove_all(folder.path("config"));
    folder.write("log", "");
    installShellLog(ShellLog(folder.path("log"), "test"));
    folder.write(file, broken);
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(defaults->value("s"));
    const auto log = folder.read("log");
    EXPECT_THAT(log, HasSubstr("read as empty"));
    EXPECT_EQ(log.find("read as empty"), log.rfind("read as empty"));
    defaults->apply({{"s", "new"}});
    EXPECT_EQ(defaults->string("s"), "new");
    std::string aside = "nothing";
    for (const auto& entry : std::filesystem::directory_iterator(folder.path("config"))) {
      const auto name = "config/" + entry.path().filename().string();
      if (name.starts_with(std::string(file) + ".unreadable-")) aside = folder.read(name);
    }
    EXPECT_EQ(aside, broken);
  }
}

TEST_F(UserDefaultsTest, AWriteThatFailsNamesThePlaceAndLosesNothing) {
  folder.write(file, R"({"s":"kept"})");
  const auto named = ::testing::ThrowsMessage<Failure>(HasSubstr(folder.path(file)));
  EXPECT_THROW(defaults->apply({{"s", std::string("\xff")}}), Failure);
  // A folder in the place of the new file's name cannot be opened for writing.
  std::filesystem::create_directory(folder.path(file) + ".new");
  EXPECT_THAT([&] { defaults->apply({{"s", "lost"}}); }, named);
  std::filesystem::permissions(folder.path("config"), std::filesystem::perms::all);
  const auto failed = folder.withoutRightsTo(file, [&] {
    EXPECT_FALSE(make()->value("s"));
    EXPECT_THAT([&] { make()->apply({{"s", "lost"}}); }, named);
    return HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(folder.read(file), R"({"s":"kept"})");
  EXPECT_EQ(defaults->string("s"), "kept");
  EXPECT_THROW(makeUserDefaults(folder.path(file), "below")->apply({{"s", "x"}}), Failure);
  EXPECT_THROW(makeUserDefaults(folder.path(), "../escape"), Failure);
}

TEST_F(UserDefaultsTest, WritersInSeveralProcessesLoseNoWrite) {
  constexpr int writes = 25;
  const auto write = [](UserDefaults& domain, int writer) {
    for (int i = 0; i < writes; ++i) domain.apply({{fmt::format("{}.{}", writer, i), std::int64_t{i}}});
  };
  std::vector<pid_t> children;
  for (int process = 0; process < 4; ++process) {
    children.push_back(::fork());
    if (children.back() != 0) continue;
    write(*make(), process);
    ::_exit(0);
  }
  write(*defaults, 4);
  for (const pid_t child : children) {
    int status = 1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  for (int writer = 0; writer < 5; ++writer) {
    for (int i = 0; i < writes; ++i) EXPECT_EQ(defaults->integer(fmt::format("{}.{}", writer, i)), i);
  }
}

}  // namespace
}  // namespace vorlane
