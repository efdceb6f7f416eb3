#include "base/Failure.h"
#include "base/ShellLog.h"
#include "base/paths/Version.h"
#include "base/tasks/Runtime.h"
#include "control/ControlClient.h"
#include "control/ControlServer.h"
#include "platform/InstanceLock.h"
#include "platform/LauncherPointer.h"
#include "shell/AgentCommandLine.h"
#include "shell/AppDelegate.h"
#include "shell/ProcessSetup.h"
#include "shell/Program.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>

#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>

namespace vorlane {
namespace {

/// How long a second start waits for an agent that is just coming up.
constexpr std::chrono::seconds handOverPatience{10};

/// What the running agent is asked, in place of this start.
JSONMap handOverRequest(const AgentCommandLine& line) {
  if (!line.urls.empty())
    return {{"command", "open"}, {"urls", JSONArray(line.urls.begin(), line.urls.end())}};
  return {{"command", "show"}, {"what", "panel"}};
}

/// The agent of this container is another process: it is handed what this one was
/// started for. False when it does not listen, or not yet. Throws Failure when
/// there is nothing to hand over.
bool handedOver(const AgentCommandLine& line, const Paths& paths) {
  if (line.urls.empty() && line.headless) {
    throw Failure("an agent is already running for " + *paths.container);
  }
  if (line.urls.empty() && line.background) return true;
  try {
    ControlClient::request(paths.controlSocket(), handOverRequest(line));
    return true;
  } catch (const ControlClient::NobodyListens&) {
    return false;
  }
}

/// Takes the instance lock, or hands over to the agent that holds it: then nothing.
/// That agent may be just coming up, or just ending, so both are tried for a while.
std::optional<InstanceLock> lockOrHandOver(const AgentCommandLine& line, const Paths& paths) {
  if (line.relaunch) return InstanceLock::acquire(paths.instanceLock());
  for (const auto end = std::chrono::steady_clock::now() + handOverPatience;;) {
    if (auto lock = InstanceLock::tryAcquire(paths.instanceLock())) return lock;
    if (handedOver(line, paths)) return std::nullopt;
    if (std::chrono::steady_clock::now() > end) {
      throw Failure("the agent that holds " + paths.instanceLock() + " does not answer");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

void pointLaunchersHere(const Paths& paths) {
  if (!paths.launcherPointer) return;
  try {
    writeLauncherPointer(*paths.launcherPointer, *paths.container);
  } catch (const std::exception& error) {
    // Launchers that are told the container still find it.
    shellLog(describe(error));
  }
}

/// Serves until a signal ends the process.
int serve(const ProgramSettings& settings, const AgentCommandLine& line) {
  const auto& [paths, deployment] = settings;
  const Runtime runtime;
  const auto main = makeHeadlessMainLoop();
  AppDelegate delegate({.paths = paths, .deployment = deployment, .port = line.port},
                       systemPlatform({.paths = paths,
                                       .caFile = deployment.caFile,
                                       .assumeOnline = deployment.assumeOnline,
                                       .io = runtime.io(),
                                       .concurrent = runtime.concurrent()}),
                       runtime, *main);

  std::optional<ControlServer> control;
  if (paths.container) {
    control.emplace(paths.controlSocket(), runtime.io(), runtime.concurrent(), delegate.commands());
    try {
      control->start();
    } catch (const std::exception& error) {
      shellLog("control socket failed: " + describe(error));
    }
  }
  boost::asio::post(main->executor(), [&] { delegate.applicationDidFinishLaunching(line.urls); });
  main->run();
  return 0;
}

int run(const Options::Words& words, const char* programPath) {
  const auto line = AgentCommandLine::parse(words);
  if (line.version) {
    fmt::print("vorlane-agent {}\n", version);
    return 0;
  }
  const auto settings = setUpProgram(line.paths, programPath);
  endAtOnceOnTermination();
  std::optional<InstanceLock> lock;
  if (containerForAppGroup(settings.paths, appGroupIdentifier)) {
    lock = lockOrHandOver(line, settings.paths);
    if (!lock) return 0;
    pointLaunchersHere(settings.paths);
  }
  if (!line.headless) shellLog("the desktop interface is not installed; running without it");
  return serve(settings, line);
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::runProgram("vorlane-agent", count, words, vorlane::run);
}
