#include "base/Failure.h"
#include "base/ShellLog.h"
#include "cloud/Deployment.h"
#include "control/ControlClient.h"
#include "control/ControlServer.h"
#include "platform/InstanceLock.h"
#include "platform/LauncherPointer.h"
#include "shell/AgentControl.h"
#include "shell/AppDelegate.h"
#include "shell/CommandLine.h"
#include "shell/ProcessSetup.h"

#include <fmt/format.h>
#include <boost/asio/post.hpp>

#include <chrono>
#include <cstdio>
#include <thread>

namespace vorlane {
namespace {

constexpr char version[] = "0.1.0";
/// How long a second start waits for an agent that is just coming up.
constexpr std::chrono::seconds handOverPatience{10};

/// The agent of this container is another process: it is handed what this one was
/// started for. False when it does not listen, or not yet. Throws Failure when
/// there is nothing to hand over.
bool handedOver(const AgentCommandLine& line, const Paths& paths) {
  if (line.urls.empty() && line.headless) {
    throw Failure("an agent is already running for " + *paths.container);
  }
  try {
    requestFromAgent(paths.controlSocket(), line.urls.empty() ? showPanelRequest() : openRequest(line.urls));
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

void leaveWordForLaunchers(const Paths& paths) {
  if (!paths.launcherPointer) return;
  try {
    writeLauncherPointer(*paths.launcherPointer, *paths.container);
  } catch (const std::exception& error) {
    // Launchers that are told the container still find it.
    shellLog(describe(error));
  }
}

/// Serves until a signal ends the process.
int serve(AppDelegate::Settings settings) {
  const auto paths = settings.paths;
  Runtime runtime;
  const auto main = makeHeadlessMainLoop();
  AppDelegate delegate(std::move(settings), runtime, *main);

  std::shared_ptr<ControlServer> control;
  if (paths.container) {
    control = makeAgentControl(paths.controlSocket(), delegate, runtime, *main);
    try {
      control->start();
    } catch (const std::exception& error) {
      shellLog("control socket failed: " + describe(error));
    }
  }
  boost::asio::post(main->executor(), [&] { delegate.applicationDidFinishLaunching(); });
  main->run();
  return 0;
}

int run(const std::vector<std::string>& arguments, const char* programPath) {
  const auto line = AgentCommandLine::parse(arguments);
  if (line.version) {
    fmt::print("vorlane-agent {}\n", version);
    return 0;
  }
  const auto paths = Paths::resolve(line.paths, processEnvironment());
  requireKnownVault(paths);
  setUpProcess(paths, programPath);
  endAtOnceOnTermination();
  Deployment deployment;
  try {
    deployment = Deployment::load(paths.deployment, paths.deploymentNamed);
  } catch (const Failure& failure) {
    throw UsageFailure(failure.description());
  }

  std::optional<InstanceLock> lock;
  if (containerForAppGroup(paths, appGroupIdentifier)) {
    lock = lockOrHandOver(line, paths);
    if (!lock) return 0;
    leaveWordForLaunchers(paths);
  }
  if (!line.headless) shellLog("the desktop interface is not installed; running without it");
  return serve({.paths = paths, .deployment = std::move(deployment), .port = line.port, .urls = line.urls});
}

}  // namespace
}  // namespace vorlane

int main(int count, char** words) {
  return vorlane::runProgram("vorlane-agent", count, words, vorlane::run);
}
