#include "shell/ProcessSetup.h"

#include "base/ShellLog.h"

#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace vorlane {

void setUpProcess(const Paths& paths, const char* programPath) {
  ::umask(S_IRWXG | S_IRWXO);
  std::signal(SIGPIPE, SIG_IGN);
  // A limit on file sizes then fails the one write, as a full disk does.
  std::signal(SIGXFSZ, SIG_IGN);
  // A few arenas serve these few threads as well, and an agent that idles for
  // weeks should not hold one for each of them.
  ::mallopt(M_ARENA_MAX, 2);
  installShellLog(ShellLog(paths.shellLog, std::filesystem::path(programPath).filename().string()));
}

void endAtOnceOnTermination() {
  struct sigaction action{};
  action.sa_handler = [](int) { ::_exit(0); };
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGTERM, &action, nullptr);
  ::sigaction(SIGINT, &action, nullptr);
}

}  // namespace vorlane
