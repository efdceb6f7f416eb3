// The stdio launcher. Assistants start one each, with hardly an environment, and
// keep it for as long as they live, whatever the agent does meanwhile.
#include "base/paths/Version.h"
#include "launcher/Relay.h"

#include <fcntl.h>
#include <malloc.h>
#include <pwd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

namespace vorlane {
namespace {

/// The environment, and without a HOME the one that the system knows for the person.
std::optional<std::string> variable(const char* name) {
  auto value = processEnvironment()(name);
  if (value || std::string_view(name) != "HOME") return value;
  const passwd* entry = ::getpwuid(::getuid());
  if (entry == nullptr || entry->pw_dir == nullptr || *entry->pw_dir == '\0') return std::nullopt;
  return entry->pw_dir;
}

/// The program that started us may have blocked or ignored these.
void setUpSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  struct sigaction action{};
  action.sa_handler = [](int) { ::_exit(0); };
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : {SIGTERM, SIGINT}) {
    ::sigaction(signal, &action, nullptr);
    sigaddset(&ending, signal);
  }
  ::sigprocmask(SIG_UNBLOCK, &ending, nullptr);
}

/// A socket must not take the place of a standard stream that was closed.
bool fillStandardStreams() {
  const bool useful = ::fcntl(STDIN_FILENO, F_GETFD) >= 0 && ::fcntl(STDOUT_FILENO, F_GETFD) >= 0;
  if (::fcntl(STDERR_FILENO, F_GETFD) < 0) ::open("/dev/null", O_WRONLY);
  return useful;
}

int run(int count, char** words) {
  PathOptions paths;
  bool asksVersion = false;
  Options options;
  options.value("--container", paths.container).flag("--version", asksVersion);
  if (const auto operands = options.parse(wordsOf(count, words)); !operands.empty()) {
    throw UsageFailure("unexpected word " + operands[0]);
  }
  if (asksVersion) {
    std::printf("vorlane-mcp-launcher %s\n", version);
    return 0;
  }
  if (!fillStandardStreams()) return 0;
  setUpSignals();
  // Else the memory of one large answer would be kept for the next.
  ::mallopt(M_MMAP_THRESHOLD, 131072);
  Relay(STDIN_FILENO, STDOUT_FILENO, Paths::resolve(paths, variable)).run();
  return 0;
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  try {
    return vorlane::run(count, words);
  } catch (const vorlane::UsageFailure& failure) {
    vorlane::notice(failure.what());
    return 2;
  } catch (const std::exception& error) {
    vorlane::notice(error.what());
    return 1;
  }
}
