#include "base/paths/Paths.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <map>
#include <utility>

namespace vorlane {
namespace {

using Variables = std::map<std::string, std::string>;

Paths resolve(const PathOptions& options, Variables variables) {
  return Paths::resolve(options, [&](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
  });
}

/// The paths within home and container, in words.
std::string told(const Paths& paths) {
  constexpr const char* vaults[] = {"automatic", "file", "secret service"};
  return fmt::format("{}, {}, {}, {}", paths.container.value_or("-"), paths.configHome.value_or("-"),
                     paths.renderCache.value_or("-"), vaults[std::to_underlying(paths.vault)]);
}

TEST(ThePlaces, FollowOptionThenVariableThenHome) {
  // The option for the container is told as the variable "--container".
  const std::pair<Variables, std::string> table[] = {
      {{{"HOME", "/h"}, {"XDG_DATA_HOME", "d"}, {"XDG_CONFIG_HOME", "./c"}},
       "/h/.local/share/group.com.vorlane.shared, /h/.config/vorlane, "
       "/h/.cache/com.vorlane.agent/renders, automatic"},
      {{{"HOME", "/h"}, {"XDG_DATA_HOME", "/d/"}, {"XDG_CONFIG_HOME", "/c"}, {"XDG_CACHE_HOME", "/k"}},
       "/d/group.com.vorlane.shared, /c/vorlane, /k/com.vorlane.agent/renders, automatic"},
      {{{"HOME", "/h"}, {"VORLANE_CONTAINER", "/w/x/../y/"}},
       "/w/y, /w/y/config, /h/.cache/com.vorlane.agent/renders, file"},
      {{{"--container", "/o"}, {"VORLANE_CONTAINER", "/w"}, {"XDG_CONFIG_HOME", "/c"}},
       "/o, /o/config, -, file"},
      {{{"--container", "/o"}, {"VORLANE_CONFIG_HOME", "/f"}, {"VORLANE_VAULT", "secret-service"}},
       "/o, /f, -, secret service"},
      {{{"VORLANE_VAULT", "file"}}, "-, -, -, file"},
  };
  for (const auto& [given, expected] : table) {
    PathOptions options;
    if (given.contains("--container")) options.container = given.at("--container");
    const auto paths = resolve(options, given);
    EXPECT_EQ(told(paths), expected);
    EXPECT_EQ(paths.containerNamed, options.container || given.contains("VORLANE_CONTAINER")) << expected;
  }
}

TEST(ThePlaces, NameWhatLiesOutsideTheContainer) {
  const auto bare = resolve({}, {});
  EXPECT_EQ(bare.shellLog + " " + bare.deployment, "/tmp/vorlane-shell.log /etc/vorlane/deployment.json");
  EXPECT_FALSE(bare.deploymentNamed || bare.launcherPointer || bare.shellLogInState);
  const Variables variables{{"HOME", "/h"},
                            {"VORLANE_SHELL_LOG", "/l"},
                            {"VORLANE_DEPLOYMENT", "/v.json"},
                            {"XDG_CONFIG_HOME", "/c"}};
  EXPECT_EQ(resolve({}, variables).deployment, "/v.json");
  EXPECT_EQ(resolve({}, variables).shellLogInState, "/h/.local/state/vorlane/shell.log");
  EXPECT_EQ(resolve({}, {{"XDG_STATE_HOME", "/s"}}).shellLogInState, "/s/vorlane/shell.log");
  const auto told = resolve({"/o", "/f.json"}, variables);
  EXPECT_EQ(told.launcherPointer, "/h/.config/vorlane/container") << "whatever XDG says";
  EXPECT_EQ(told.shellLog + " " + told.deployment, "/l /f.json");
  EXPECT_EQ(resolve({}, {{"VORLANE_VAULT", "keychain"}}).unknownVault, "keychain");
  EXPECT_TRUE(resolve({"relative", {}}, {}).container->starts_with("/"));
}

}  // namespace
}  // namespace vorlane
