#include "shell/ProcessSetup.h"

#include "base/ShellLog.h"
#include "platform/DescriptorLimit.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace vorlane {
namespace {

/// A dump of the memory holds tokens. One byte stops files, and pipes to a collector as
/// well, which no other limit does. The process stays dumpable, since others find out which
/// program it runs by its link in /proc.
void forbidCoreDumps() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_CORE, &limit) != 0) return;
  limit.rlim_cur = std::min<rlim_t>(1, limit.rlim_max);
  ::setrlimit(RLIMIT_CORE, &limit);
}

}  // namespace

void setUpProcess(const Paths& paths, const char* programPath) {
  ::umask(S_IRWXG | S_IRWXO);
  std::signal(SIGPIPE, SIG_IGN);
  // A limit on file sizes then fails the one write, as a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  // A few arenas serve these few threads as well, and an agent that idles for
  // weeks should not hold one for each of them.
  ::mallopt(M_ARENA_MAX, 2);
  forbidCoreDumps();
  raiseDescriptorLimit();
  installShellLog(ShellLog(paths.shellLog, std::filesystem::path(programPath).filename().string(),
                           paths.shellLogInState));
}

void endAtOnceOnTermination() {
  struct sigaction action{};
  action.sa_handler = [](int) { ::_exit(0); };
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

}  // namespace vorlane
