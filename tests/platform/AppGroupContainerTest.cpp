#include "base/Failure.h"
#include "platform/Platform.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace vorlane {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

std::optional<std::string> prepare(const std::string& folder) {
  Paths paths;
  paths.container = folder;
  return containerForAppGroup(paths, appGroupIdentifier);
}

TEST(AppGroupContainer, IsMadePrivateAlsoBehindALinkOfOnesOwn) {
  const testing::TemporaryFolder folder;
  fs::create_directory(folder.path("open"));
  fs::permissions(folder.path("open"), fs::perms(0755));
  folder.link("link", "open");
  for (const char* name : {"link", "open", "new/below"}) {
    EXPECT_EQ(prepare(folder.path(name)), folder.path(name));
  }
  for (const char* name : {"open", "new", "new/below"}) EXPECT_EQ(folder.mode(name), 0700U) << name;
  folder.write("file", "");
  EXPECT_THROW(prepare(folder.path("file")), Failure);
}

TEST(AppGroupContainer, OfAnotherUserIsRefusedByNameAndLeftAsItIs) {
  const testing::TemporaryFolder folder;
  // What another user owns: root alone can make that.
  std::string foreign = "/usr", owner = "root";
  if (::geteuid() == 0) {
    fs::create_directory(foreign = folder.path("foreign"));
    fs::permissions(foreign, fs::perms(0755));
    ASSERT_EQ(::chown(foreign.c_str(), 65534, 65534), 0);
    fs::create_directory(folder.path("own"));
    folder.link("planted", "own");
    ASSERT_EQ(::lchown(folder.path("planted").c_str(), 65534, 65534), 0);
    EXPECT_THROW(prepare(folder.path("planted")), Failure) << "a link of theirs to a folder of one's own";
    owner = "nobody";
  }
  fs::create_symlink(foreign, folder.path("link"));
  for (const auto& name : {foreign, folder.path("link")}) {
    EXPECT_THAT([&] { prepare(name); },
                ::testing::ThrowsMessage<Failure>(AllOf(HasSubstr(name), HasSubstr("user " + owner))));
  }
  EXPECT_EQ(static_cast<unsigned>(fs::status(foreign).permissions()), 0755U);
}

}  // namespace
}  // namespace vorlane
