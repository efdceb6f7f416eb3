#include "base/Failure.h"
#include "base/Identifiers.h"
#include "base/paths/Options.h"
#include "devcloud/DevCloud.h"

#include <fmt/format.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

namespace {

using vorlane::UsageFailure;
using vorlane::devcloud::DevCloudOptions;

constexpr std::uint16_t defaultPort = 17810;

std::uint16_t portFrom(const std::string& text) {
  const auto number = vorlane::decimalInteger(text);
  if (!number || *number < 0 || *number > 65534) {
    throw UsageFailure("the option --port takes a number from 0 to 65534, not \"" + text + "\"");
  }
  return static_cast<std::uint16_t>(*number);
}

DevCloudOptions optionsFrom(const vorlane::Options::Words& words) {
  std::optional<std::string> directory;
  DevCloudOptions options{.port = defaultPort};
  const auto operands = vorlane::Options()
                            .value("--dir", directory)
                            .value("--port", [&](const std::string& text) { options.port = portFrom(text); })
                            .parse(words);
  if (!operands.empty()) throw UsageFailure("unexpected word " + operands[0]);
  if (!directory) throw UsageFailure("usage: vorlane-devcloud --dir DIR [--port N]");
  options.directory = *directory;
  return options;
}

/// A load test brings thousands of connections at once.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

int serve(DevCloudOptions options) {
  // Blocked before any thread is there, so that all threads leave them to sigwait.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  raiseDescriptorLimit();

  vorlane::devcloud::DevCloud cloud(std::move(options));
  cloud.start();
  std::puts("ready");
  std::fflush(stdout);
  int signal = 0;
  while (sigwait(&ends, &signal) != 0) continue;
  cloud.stop();
  return 0;
}

}  // namespace

int main(int count, char** values) {
  try {
    return serve(optionsFrom(vorlane::wordsOf(count, values)));
  } catch (const UsageFailure& failure) {
    fmt::print(stderr, "vorlane-devcloud: {}\n", failure.what());
    return 2;
  } catch (const std::exception& error) {
    fmt::print(stderr, "vorlane-devcloud: {}\n", vorlane::describe(error));
    return 1;
  }
}
