#include "base/Failure.h"
#include "base/Identifiers.h"
#include "devcloud/DevCloud.h"

#include <fmt/format.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <span>

namespace {

using vorlane::devcloud::DevCloudOptions;

constexpr const char* usage = "usage: vorlane-devcloud --dir DIR [--port N]";
constexpr std::uint16_t defaultPort = 17810;

/// The command line is wrong; the description says how.
class UsageFailure : public vorlane::Failure {
 public:
  using Failure::Failure;
};

std::uint16_t portFrom(const std::string& text) {
  const auto number = vorlane::decimalInteger(text);
  if (!number || *number < 0 || *number > 65534) {
    throw UsageFailure("--port has to be a number from 0 to 65534, not \"" + text + "\"");
  }
  return static_cast<std::uint16_t>(*number);
}

DevCloudOptions optionsFrom(std::span<char*> arguments) {
  DevCloudOptions options{.port = defaultPort};
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    const std::string name = arguments[i];
    if (name != "--dir" && name != "--port") throw UsageFailure("unknown option \"" + name + "\"");
    if (i + 1 == arguments.size()) throw UsageFailure(name + " needs a value");
    const std::string value = arguments[i + 1];
    if (name == "--port") {
      options.port = portFrom(value);
    } else {
      options.directory = value;
    }
  }
  if (options.directory.empty()) throw UsageFailure("--dir is missing");
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
    return serve(optionsFrom({values, static_cast<std::size_t>(count)}));
  } catch (const UsageFailure& failure) {
    fmt::print(stderr, "vorlane-devcloud: {} ({})\n", failure.description(), usage);
    return 2;
  } catch (const std::exception& error) {
    fmt::print(stderr, "vorlane-devcloud: {}\n", vorlane::describe(error));
    return 1;
  }
}
