#include "auth/DeviceIdentity.h"

#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"

#include <gmock/gmock.h>

#include <thread>

namespace vorlane {
namespace {

const SecretItem item{"com.vorlane.device", "device-id"};
constexpr char mirror[] = "com.vorlane.device.id";
const std::string one = "9B2F6C1E-1111-4000-8000-000000000001",
                  other = "9b2f6c1e-1111-4000-8000-000000000002";

TEST(DeviceIdentity, TakesTheSharedIdThenTheMirrorThenANewOneAndLeavesItInBoth) {
  struct Case {
    const char* name;
    std::optional<std::string> shared, mirrored;
    std::string expected;  // empty: any new one
    int logged;
  };
  const Case cases[] = {
      {"fresh", {}, {}, "", 0},         {"shared", one, other, one, 0},
      {"mirror", {}, other, other, 0},  {"spoilt mirror", {}, "x", "", 0},
      {"spoilt", "x", other, other, 1}, {"both spoilt", "", "{" + one + "}", "", 1},
  };
  for (const auto& [name, shared, mirrored, expected, logged] : cases) {
    const auto vault = std::make_shared<testing::FakeVault>();
    const auto defaults = std::make_shared<testing::FakeUserDefaults>();
    if (shared) vault->plant(item, *shared);
    if (mirrored) defaults->apply({{mirror, *mirrored}});
    std::vector<std::string> log;
    const DeviceIdentity device(
        vault, defaults, []() -> std::optional<std::string> { return std::nullopt; },
        [&](std::string_view line) { log.emplace_back(line); });
    std::vector<std::jthread> users;
    for (int i = 0; i < 4; ++i) users.emplace_back([&] { EXPECT_EQ(device.id().size(), 36U); });
    users.clear();
    if (!expected.empty()) EXPECT_EQ(device.id(), expected) << name;
    EXPECT_EQ(defaults->string(mirror), device.id()) << name;
    if (logged == 0) EXPECT_EQ(vault->bytes(item), device.id()) << name;
    EXPECT_EQ(log, std::vector<std::string>(
                       static_cast<std::size_t>(logged),
                       "DeviceIdentity: shared write status=-25299 (falling back to local mirror)"))
        << name;
  }
}

TEST(DeviceIdentity, FollowsTheProcessThatWasFaster) {
  const auto vault = std::make_shared<testing::FakeVault>();
  const auto defaults = std::make_shared<testing::FakeUserDefaults>();
  vault->afterNextRead([&] { vault->plant(item, one); });
  const DeviceIdentity device(
      vault, defaults, []() -> std::optional<std::string> { return "Ana’s  “desk” 🎬🎬 é x"; },
      [](std::string_view) {});
  URLRequest request;
  device.apply(request);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"x-vorlane-device-id", one},
      {"x-vorlane-device-class", "computer"},
      {"x-vorlane-device-label", "Ana's \"desk\" x"}};
  EXPECT_EQ(request.headers, expected);
  EXPECT_EQ(defaults->string(mirror), one);
}

TEST(DeviceIdentity, LabelsArePlainShortAndNeverBlank) {
  EXPECT_EQ(DeviceIdentity::cleanedLabel(std::string(200, 'a')), std::string(64, 'a'));
  EXPECT_EQ(DeviceIdentity::cleanedLabel(std::string(63, 'a') + " b"), std::string(63, 'a'));
  EXPECT_EQ(DeviceIdentity::cleanedLabel("\t a\xff\xfe~\x7f"), "a ~");
  for (const char* none : {"", "🎬", " é "}) EXPECT_EQ(DeviceIdentity::cleanedLabel(none), std::nullopt);
}

}  // namespace
}  // namespace vorlane
