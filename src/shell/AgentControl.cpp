#include "shell/AgentControl.h"

#include "base/JSONArguments.h"
#include "base/tasks/Timing.h"
#include "control/ControlClient.h"
#include "shell/AppDelegate.h"

namespace vorlane {
namespace {

constexpr std::chrono::seconds answerLimit{5};

/// On the main executor, like everything of the delegate's.
JSONMap answer(AppDelegate& delegate, const JSONMap& request) {
  const auto command = json::stringOr(request, "command");
  if (command == "status") return delegate.status();
  if (command == "open") {
    std::vector<std::string> urls;
    if (const auto* list = json::array(request, "urls")) {
      for (const auto& url : *list) {
        if (url.is_string()) urls.emplace_back(url.get_string());
      }
    }
    delegate.applicationOpen(urls);
    return {};
  }
  if (command == "show-panel") throw Failure("the running agent has no desktop interface");
  throw Failure("unknown command \"" + command + "\"");
}

}  // namespace

JSONMap statusRequest() {
  return {{"command", "status"}};
}

JSONMap openRequest(const std::vector<std::string>& urls) {
  return {{"command", "open"}, {"urls", JSONArray(urls.begin(), urls.end())}};
}

JSONMap showPanelRequest() {
  return {{"command", "show-panel"}};
}

JSONMap requestFromAgent(const std::string& socket, const JSONMap& request) {
  auto response = ControlClient::request(socket, request, answerLimit);
  if (!json::booleanOr(response, "ok", false)) {
    throw Failure(json::stringOr(response, "error", "the agent refused without a reason"));
  }
  response.erase("ok");
  return response;
}

std::shared_ptr<ControlServer> makeAgentControl(const std::string& socket, AppDelegate& delegate,
                                                Runtime& runtime, MainLoop& main) {
  auto handler = [&delegate, executor = main.executor()](JSONMap request) -> Task<JSONMap> {
    co_return co_await onExecutor(executor, [&delegate, request = std::move(request)]() -> Task<JSONMap> {
      co_return answer(delegate, request);
    });
  };
  return std::make_shared<ControlServer>(socket, runtime.io(), runtime.concurrent(), std::move(handler));
}

}  // namespace vorlane
