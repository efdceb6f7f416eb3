#include "shell/services/LedgerlyService.h"

#include "base/ShellLog.h"
#include "base/tasks/Timing.h"
#include "shell/Contributions.h"
#include "store/LedgerlyQueries.h"
#include "sync/LedgerlyPusher.h"
#include "tools/ledgerly/LedgerlyToolModule.h"

#include <chrono>
#include <utility>

namespace vorlane {
namespace {

constexpr std::chrono::seconds pushInterval{60};

}  // namespace

/// Without the web API's address there is no client, and none of the tools that need it.
std::optional<LedgerlyWebClient> LedgerlyService::webClient() const {
  const auto& api = context_.account.ledgerly;
  if (!api.isNamed()) return std::nullopt;
  return LedgerlyWebClient{api};
}

void LedgerlyService::contribute(Contributions& to) {
  to.tools([this](const std::shared_ptr<ToolRegistry>& registry) {
    std::optional<LedgerlyAttachmentClient> attachments;
    std::optional<LedgerlyAIListClient> archive;
    if (const auto web = webClient()) {
      attachments.emplace(*web);
      archive.emplace(*web, shellLog);
    }
    registry->registerModule(std::make_shared<LedgerlyToolModule>(
        LedgerlyQueries(context_.store, context_.storeNotifications), std::move(attachments),
        std::move(archive), context_.concurrent));
  });
}

void LedgerlyService::start() {
  const auto pusher =
      std::make_shared<LedgerlyPusher>(LedgerlyQueries(context_.store, context_.storeNotifications),
                                       LedgerlyPushClient{context_.account.ledgerly}, shellLog,
                                       context_.journal, context_.sheetExchange, sleepFor, context_.isOnline);
  ledgerlyPushTask_.reset();  // which cancels it
  ledgerlyPushTask_ = std::make_unique<TaskGroup>();
  ledgerlyPushTask_->spawn(context_.concurrent, "sheet pushing",
                           [pusher] { return pusher->runForever(pushInterval); });
}

Task<> LedgerlyService::stop() {
  if (!ledgerlyPushTask_) co_return;
  ledgerlyPushTask_->cancel();
  co_await ledgerlyPushTask_->join();
}

}  // namespace vorlane
