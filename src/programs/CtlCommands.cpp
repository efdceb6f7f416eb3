#include "programs/CtlCommands.h"

#include "base/JSON.h"
#include "base/JSONArguments.h"
#include "control/ControlClient.h"
#include "platform/ProgramFolder.h"
#include "programs/CtlCheckpoint.h"
#include "shell/AccountServices.h"
#include "shell/AgentControl.h"
#include "shell/AgentStatus.h"
#include "shell/ClientConfiguration.h"
#include "shell/CommandLine.h"
#include "shell/ProcessSetup.h"
#include "store/AgentStore.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <semaphore>

namespace vorlane::ctl {
namespace {

constexpr char defaultEndpoint[] = "http://127.0.0.1:17800/rpc";

void requireContainer(const Paths& paths) {
  if (!containerForAppGroup(paths, appGroupIdentifier)) {
    throw Failure(fmt::format("App Group container unavailable for {}: HOME is not set", appGroupIdentifier));
  }
}

void expectNoMore(const Context& context, std::size_t used) {
  if (context.arguments.size() > used) throw UsageFailure("unexpected word " + context.arguments[used]);
}

/// Takes the one option that a command knows; false when it was not given.
bool takeOption(const Context& context, std::string_view option) {
  if (context.arguments.empty()) return false;
  if (context.arguments[0] != option) throw UsageFailure("unknown option " + context.arguments[0]);
  expectNoMore(context, 1);
  return true;
}

/// The running agent's own status; nothing when none runs. One that runs and does
/// not answer is a failure, not absence.
std::optional<JSONMap> statusOfAgent(const Paths& paths) {
  try {
    return requestFromAgent(paths.controlSocket(), statusRequest());
  } catch (const ControlClient::NobodyListens&) {
    return std::nullopt;
  }
}

std::string status(const Context& context) {
  expectNoMore(context, 0);
  requireContainer(context.paths);
  if (const auto live = statusOfAgent(context.paths)) return writeJSON(*live);
  Runtime runtime;
  const AccountServices account(context.paths, context.deployment, runtime.io(), runtime.concurrent());
  std::shared_ptr<AgentStore> store;
  if (std::filesystem::exists(context.paths.database())) {
    store = AgentStore::open(context.paths, appGroupIdentifier);
  }
  return writeJSON(accountStatus(context.paths, account, store));
}

std::string bearerToken(const Context& context, bool regenerate) {
  requireContainer(context.paths);
  Runtime runtime;
  const AccountServices account(context.paths, context.deployment, runtime.io(), runtime.concurrent());
  if (regenerate) account.bearerStore->regenerate();
  return account.bearerStore->currentToken();
}

std::string token(const Context& context) {
  return writeJSON(JSONMap{{"token", bearerToken(context, takeOption(context, "--regenerate"))}});
}

std::string clientConfig(const Context& context) {
  if (!takeOption(context, "--http")) {
    return stdioClientConfiguration((programFolder() / "vorlane-mcp-launcher").string());
  }
  requireContainer(context.paths);
  std::string endpoint = defaultEndpoint;
  if (const auto live = statusOfAgent(context.paths)) endpoint = json::stringOr(*live, "endpoint", endpoint);
  return httpClientConfiguration(endpoint, bearerToken(context, false));
}

std::string signal(const Context& context) {
  const auto& words = context.arguments;
  if (words.size() != 2 || (words[0] != "post" && words[0] != "watch")) {
    throw UsageFailure("signal takes \"post NAME\" or \"watch NAME\"");
  }
  requireContainer(context.paths);
  Runtime runtime;
  const auto signals = makeSignalCenter(context.paths.signals(), runtime.io(), runtime.concurrent());
  const auto line = writeJSON(JSONMap{{"signal", words[1]}});
  if (words[0] == "post") {
    if (!signals->post(words[1])) throw Failure("the signal could not be posted to other processes");
    return line;
  }
  const auto observation = signals->observe(words[1], [&line] {
    std::fputs((line + "\n").c_str(), stdout);
    // Nobody reads any more.
    if (std::fflush(stdout) != 0) ::_exit(1);
  });
  // Until somebody ends the program, which is no failure here.
  endAtOnceOnTermination();
  std::binary_semaphore(0).acquire();
  return {};
}

struct Command {
  std::string_view name;
  std::string (*run)(const Context&);
};

constexpr Command commands[] = {
    {"status", status}, {"token", token},           {"client-config", clientConfig},
    {"signal", signal}, {"checkpoint", checkpoint},
};

}  // namespace

std::string run(const std::string& name, const Context& context) {
  for (const auto& command : commands) {
    if (command.name == name) return command.run(context);
  }
  throw UsageFailure("unknown command " + name);
}

}  // namespace vorlane::ctl
