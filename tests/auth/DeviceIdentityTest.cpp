#include "auth/DeviceIdentity.h"

#include "support/FakeUserDefaults.h"
#include "support/FakeVault.h"
#include "support/LogRecorder.h"

#include <gmock/gmock.h>

#include <thread>

namespace vorlane {
namespace {

const SecretItem item{"com.vorlane.device", "device-id"};
constexpr char mirror[] = "com.vorlane.device.id";
const std::string one = "9B2F6C1E-1111-4000-8000-000000000001",
                  other = "9b2f6c1e-1111-4000-8000-000000000002";

/// A device of which nothing is known yet.
struct Device {
  std::shared_ptr<testing::FakeVault> vault = std::make_shared<testing::FakeVault>();
  std::shared_ptr<testing::FakeUserDefaults> defaults = std::make_shared<testing::FakeUserDefaults>();
  testing::LogRecorder log;
  DeviceIdentity identity{vault, defaults,
                          []() -> std::optional<std::string> { return "Ana’s  “desk” 🎬🎬 é x"; }, log.log()};
};

TEST(DeviceIdentity, TakesTheSharedIdThenTheMirrorThenANewOneAndLeavesItInBoth) {
  // What is shared and mirrored, the id, empty for any new one, and whether sharing it failed.
  using Text = std::optional<std::string>;
  const std::tuple<Text, Text, std::string, bool> cases[] = {
      {{}, {}, "", false},  {one, other, one, false},  {{}, other, other, false},
      {{}, "x", "", false}, {"x", other, other, true}, {"", "{" + one + "}", "", true},
  };
  for (const auto& [shared, mirrored, expected, unshared] : cases) {
    Device device;
    if (shared) device.vault->plant(item, *shared);
    if (mirrored) device.defaults->apply({{mirror, *mirrored}});
    std::vector<std::jthread> users;
    for (int i = 0; i < 4; ++i) users.emplace_back([&] { EXPECT_EQ(device.identity.id().size(), 36U); });
    users.clear();
    const auto& id = device.identity.id();
    if (!expected.empty()) EXPECT_EQ(id, expected);
    EXPECT_EQ(device.defaults->string(mirror), id);
    EXPECT_EQ(device.vault->bytes(item), unshared ? *shared : id);
    const auto* failure = "DeviceIdentity: shared write status=-25299 (falling back to local mirror)";
    EXPECT_EQ(device.log.lines(), std::vector<std::string>(unshared ? 1 : 0, failure));
  }
}

TEST(DeviceIdentity, FollowsTheProcessThatWasFaster) {
  Device device;
  device.vault->afterNextRead([&] { device.vault->plant(item, one); });
  URLRequest request;
  device.identity.apply(request);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"x-vorlane-device-id", one},
      {"x-vorlane-device-class", "computer"},
      {"x-vorlane-device-label", "Ana's \"desk\" x"}};
  EXPECT_EQ(request.headers, expected);
  EXPECT_EQ(device.defaults->string(mirror), one);
}

TEST(DeviceIdentity, LabelsArePlainShortAndNeverBlank) {
  EXPECT_EQ(DeviceIdentity::cleanedLabel(std::string(200, 'a')), std::string(64, 'a'));
  EXPECT_EQ(DeviceIdentity::cleanedLabel(std::string(63, 'a') + " b"), std::string(63, 'a'));
  EXPECT_EQ(DeviceIdentity::cleanedLabel("\t a\xff\xfe~\x7f"), "a ~");
  for (const char* none : {"", "🎬", " é "}) EXPECT_EQ(DeviceIdentity::cleanedLabel(none), std::nullopt);
}

}  // namespace
}  // namespace vorlane
