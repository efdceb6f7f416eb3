#include "shell/services/RecentsService.h"

#include "base/ShellLog.h"
#include "base/tasks/Spawn.h"
#include "shell/Contributions.h"
#include "store/RecentsQueries.h"
#include "tools/suite/VorlaneToolModule.h"

#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace vorlane {
namespace {

AppRecentsHolder::Settings holderSettings(AgentContext& context) {
  return {.paths = context.settings.paths,
          .ledgerly = context.account.ledgerly,
          .sceneward = context.account.sceneward,
          .journal = context.journal,
          .sheetExchange = context.sheetExchange,
          .preferences = [&preferences = context.preferences] { return preferences.snapshot(); },
          .storeNotifications = context.storeNotifications,
          .notifications = context.account.notifications,
          .hydrator = nullptr,
          .main = context.main,
          .concurrent = context.concurrent,
          .log = shellLog};
}

}  // namespace

RecentsService::RecentsService(AgentContext& context) : context_(context), holder_(holderSettings(context)) {}

void RecentsService::contribute(Contributions& to) {
  to.tools([this](const std::shared_ptr<ToolRegistry>& registry) {
    registry->registerModule(std::make_shared<VorlaneToolModule>(
        RecentsQueries(context_.store, context_.storeNotifications), context_.account.profile()));
  });
}

void RecentsService::start() {
  spawn(context_.main, "recents start", [this]() -> Task<> {
    // A task of its own: what follows in the start does not wait for it.
    co_await boost::asio::post(boost::asio::use_awaitable);
    holder_.startPolling();
    co_await holder_.viewModel()->reload();
  });
}

Task<> RecentsService::stop() {
  holder_.stopPolling();
  co_return;
}

}  // namespace vorlane
