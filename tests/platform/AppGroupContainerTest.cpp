#include "base/Failure.h"
#include "platform/Platform.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace vorlane {
namespace {

namespace fs = std::filesystem;

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

// That somebody else's folder is refused by name is tested with the programs.
TEST(AppGroupContainer, IsNotReachedByALinkOfAnotherUserOrToTheirFolder) {
  const testing::TemporaryFolder folder;
  fs::create_symlink("/usr", folder.path("foreign"));
  fs::create_directory(folder.path("own"));
  folder.link("planted", "own");
  if (::geteuid() == 0) {
    // Root owns /usr, and is the only one who can make links of others.
    fs::create_directory(folder.path("theirs"));
    fs::remove(folder.path("foreign"));
    folder.link("foreign", "theirs");
    ASSERT_EQ(::chown(folder.path("theirs").c_str(), 65534, 65534), 0);
    ASSERT_EQ(::lchown(folder.path("planted").c_str(), 65534, 65534), 0);
    EXPECT_THROW(prepare(folder.path("planted")), Failure);
  }
  EXPECT_THROW(prepare(folder.path("foreign")), Failure);
}

}  // namespace
}  // namespace vorlane
