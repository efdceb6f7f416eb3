#include "shell/ProcessSetup.h"

#include "base/ShellLog.h"
#include "platform/DescriptorLimit.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace vorlane {
namespace {

/// A process that starts with these limits, looks at what its set-up made of them, and crashes.
void setUpAndCrash() {
  rlimit core{};
  getrlimit(RLIMIT_CORE, &core);
  core.rlim_cur = core.rlim_max;
  setrlimit(RLIMIT_CORE, &core);
  rlimit descriptors{};
  getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = 100;
  setrlimit(RLIMIT_NOFILE, &descriptors);

  Paths paths;
  paths.shellLog = "/";
  paths.shellLogInState = "state.log";
  setUpProcess(paths, "program");
  if (shellLogPath() != "state.log") _exit(3);
  rlimit now{};
  getrlimit(RLIMIT_NOFILE, &now);
  if (now.rlim_cur != descriptors.rlim_max || descriptorLimitForChildren() != 100) _exit(1);
  getrlimit(RLIMIT_CORE, &now);
  if (now.rlim_cur > 1 || prctl(PR_GET_DUMPABLE) != 1) _exit(2);
  std::signal(SIGSEGV, SIG_DFL);
  raise(SIGSEGV);
}

TEST(ProcessSetup, LeavesNoDumpOfTheMemoryAndTakesEveryDescriptorThereIs) {
  const testing::TemporaryFolder folder;
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  const pid_t child = fork();
  if (child == 0) {
    setUpAndCrash();
    _exit(4);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  EXPECT_FALSE(WCOREDUMP(status));
  ASSERT_EQ(chdir("/"), 0);
}

}  // namespace
}  // namespace vorlane
