#include "base/JSON.h"
#include "base/JSONArguments.h"
#include "base/tasks/Runtime.h"
#include "control/ControlClient.h"
#include "platform/ProgramFolder.h"
#include "programs/CtlCommand.h"
#include "shell/AccountServices.h"
#include "shell/AgentStatus.h"
#include "shell/ClientConfiguration.h"
#include "shell/ProcessSetup.h"
#include "store/AgentStore.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <semaphore>

namespace vorlane::ctl {
namespace {

constexpr char defaultEndpoint[] = "http://127.0.0.1:17800/rpc";

/// The account's services in this process, beside those of an agent that may run.
class Account {
 public:
  explicit Account(const Context& context)
      : services_(systemPlatform({.paths = context.paths,
                                  .caFile = context.deployment.caFile,
                                  .io = runtime_.io(),
                                  .concurrent = runtime_.concurrent()}),
                  context.deployment, runtime_.concurrent()) {}
  const AccountServices* operator->() const { return &services_; }
  const AccountServices& operator*() const { return services_; }

 private:
  Runtime runtime_;
  AccountServices services_;
};

/// The running agent's own status; nothing when none runs. One that runs and does
/// not answer is a failure, not absence.
std::optional<JSONMap> statusOfAgent(const Paths& paths) {
  try {
    return ControlClient::request(paths.controlSocket(), {{"command", "status"}});
  } catch (const ControlClient::NobodyListens&) {
    return std::nullopt;
  }
}

std::string status(const Context& context) {
  context.operands();
  requireContainer(context.paths);
  if (const auto live = statusOfAgent(context.paths)) return writeJSON(*live);
  const Account account(context);
  std::shared_ptr<AgentStore> store;
  std::string reason = "no agent is running";
  if (std::filesystem::exists(context.paths.database())) {
    try {
      store = AgentStore::open(context.paths, appGroupIdentifier);
    } catch (const std::exception& error) {
      reason += ", and the store cannot be opened: " + describe(error);
    }
  }
  auto status = accountStatus(context.paths, *account, store);
  status["reason"] = reason;
  return writeJSON(status);
}

std::string token(const Context& context) {
  bool regenerate = false;
  context.operands(Options().flag("--regenerate", regenerate));
  requireContainer(context.paths);
  const Account account(context);
  if (regenerate) account->bearerStore->regenerate();
  return writeJSON(JSONMap{{"token", account->bearerStore->currentToken()}});
}

/// A block that named an endpoint which the agent does not have would hand the person's
/// token to whoever listens there.
std::string endpointForClients(const Paths& paths) {
  const auto live = statusOfAgent(paths);
  if (!live) {
    std::fputs("vorlanectl: no agent is running; the block names the default port\n", stderr);
    return defaultEndpoint;
  }
  const auto endpoint = json::nonEmptyString(*live, "endpoint");
  if (!endpoint) throw Failure("the agent does not listen");
  return *endpoint;
}

std::string clientConfig(const Context& context) {
  bool http = false;
  context.operands(Options().flag("--http", http));
  if (!http) return stdioClientConfiguration((programFolder() / "vorlane-mcp-launcher").string());
  requireContainer(context.paths);
  const auto endpoint = endpointForClients(context.paths);
  return httpClientConfiguration(endpoint, Account(context)->bearerStore->currentToken());
}

/// Signals beside those of an agent that may run.
struct Signals {
  explicit Signals(const Context& context) {
    requireContainer(context.paths);
    center = makeSignalCenter(context.paths.signals(), runtime.io(), runtime.concurrent());
  }
  Runtime runtime;
  std::unique_ptr<SignalCenter> center;
};

std::string lineOf(const std::string& name) {
  return writeJSON(JSONMap{{"signal", name}});
}

std::string postSignal(const Context& context) {
  const auto name = context.operands()[0];
  const Signals signals(context);
  if (!signals.center->post(name)) throw Failure("the signal could not be posted to other processes");
  return lineOf(name);
}

std::string watchSignal(const Context& context) {
  const auto name = context.operands()[0];
  const Signals signals(context);
  const auto observation = signals.center->observe(name, [line = lineOf(name)] {
    std::fputs((line + "\n").c_str(), stdout);
    // Nobody reads any more.
    if (std::fflush(stdout) != 0) ::_exit(1);
  });
  // Until somebody ends the program, which is no failure here.
  endAtOnceOnTermination();
  std::binary_semaphore(0).acquire();
  return {};
}

std::string open(const Context& context) {
  const auto urls = context.operands();
  requireContainer(context.paths);
  const JSONMap request{{"command", "open"}, {"urls", JSONArray(urls.begin(), urls.end())}};
  return writeJSON(ControlClient::request(context.paths.controlSocket(), request));
}

std::string show(const Context& context) {
  const auto what = context.operands();
  requireContainer(context.paths);
  const JSONMap request{{"command", "show"}, {"what", what.empty() ? "panel" : what[0]}};
  return writeJSON(ControlClient::request(context.paths.controlSocket(), request));
}

constexpr Command table[] = {
    {"status", "", 0, 0, status},
    {"token", "[--regenerate]", 0, 0, token},
    {"client-config", "[--http]", 0, 0, clientConfig},
    {"signal post", "NAME", 1, 1, postSignal},
    {"signal watch", "NAME", 1, 1, watchSignal},
    {"open", "URL ...", 1, SIZE_MAX, open},
    {"show", "[panel | TAB]", 0, 1, show},
};

}  // namespace

std::span<const Command> agentCommands() {
  return table;
}

}  // namespace vorlane::ctl
