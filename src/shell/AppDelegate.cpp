#include "shell/AppDelegate.h"

#include "base/JSONArguments.h"
#include "base/ShellLog.h"
#include "base/tasks/Spawn.h"
#include "base/tasks/Timing.h"
#include "shell/AgentStatus.h"
#include "shell/IncomingURL.h"
#include "shell/services/LedgerlyService.h"
#include "shell/services/MCPService.h"
#include "shell/services/RecentsService.h"
#include "shell/services/ScenewardService.h"
#include "store/AgentStore.h"

#include <fmt/format.h>

#include <cstdio>
#include <ranges>
#include <utility>

namespace vorlane {

AppDelegate::AppDelegate(AgentSettings settings, Platform platform, const Runtime& runtime,
                         const MainLoop& main)
    : context_(std::move(settings), std::move(platform), runtime, main) {
  // The recents are made first of all; they start last.
  auto recents = std::make_unique<RecentsService>(context_);
  services_.push_back(std::make_unique<MCPService>(context_, contributions_));
  services_.push_back(std::make_unique<ScenewardService>(context_));
  services_.push_back(std::make_unique<LedgerlyService>(context_));
  services_.push_back(std::move(recents));
  contribute();
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::contribute() {
  for (const auto& service : services_) service->contribute(contributions_);
  contributions_.command("status", [this](JSONMap, Progress) { return status(); });
  contributions_.command("open", [this](JSONMap request, Progress) -> Task<JSONMap> {
    std::vector<std::string> urls;
    if (const auto* list = json::array(request, "urls")) {
      for (const auto& url : *list) {
        if (url.is_string()) urls.emplace_back(url.get_string());
      }
    }
    co_return co_await onExecutor(context_.main, [this, urls]() -> Task<JSONMap> {
      applicationOpen(urls);
      co_return JSONMap();
    });
  });
  contributions_.command("show", [](JSONMap, Progress) -> Task<JSONMap> {
    throw Failure("the agent runs without a desktop interface");
    co_return JSONMap();
  });
}

void AppDelegate::applicationDidFinishLaunching(std::vector<std::string> urls) {
  spawn(context_.main, "start", [this, urls = std::move(urls)] { return launch(urls); });
}

Task<> AppDelegate::launch(std::vector<std::string> urls) {
  co_await openStore();
  for (const auto& service : services_) {
    if (service->needsStore() && !context_.store) continue;
    try {
      service->start();
    } catch (const std::exception& error) {
      shellLog(fmt::format("{} failed to start: {}", service->name(), describe(error)));
    }
  }
  applicationOpen(urls);
}

/// Migrations may take a while, so they do not hold up the main executor.
Task<> AppDelegate::openStore() {
  std::string failure;
  auto store = co_await onExecutor(context_.concurrent, [&]() -> Task<std::shared_ptr<AgentStore>> {
    try {
      co_return AgentStore::open(context_.settings.paths, appGroupIdentifier);
    } catch (const std::exception& error) {
      failure = describe(error);
    }
    co_return nullptr;
  });
  context_.store = std::move(store);
  context_.storeFailure = std::move(failure);
  if (context_.store) {
    shellLog("agent store opened OK");
    co_return;
  }
  // Nothing will be served, which whoever started the agent should see without the log.
  const auto line = "agent store open failed: " + context_.storeFailure;
  shellLog(line);
  std::fputs(("vorlane-agent: " + line + "\n").c_str(), stderr);
}

void AppDelegate::applicationOpen(const std::vector<std::string>& urls) {
  for (const auto& url : urls) shellLog(ignoredURLLine(url));
}

Task<> AppDelegate::stop() {
  for (const auto& service : services_ | std::views::reverse) co_await service->stop();
}

Task<JSONMap> AppDelegate::status() {
  const auto store = co_await onExecutor(
      context_.main, [this]() -> Task<std::shared_ptr<AgentStore>> { co_return context_.store; });
  co_return co_await onExecutor(context_.concurrent, [this, store]() -> Task<JSONMap> {
    auto status = accountStatus(context_.settings.paths, context_.account, store, context_.journal.get());
    status["running"] = true;
    for (const auto& source : contributions_.status()) {
      for (auto& [key, value] : co_await source()) status[key] = std::move(value);
    }
    co_return status;
  });
}

}  // namespace vorlane
