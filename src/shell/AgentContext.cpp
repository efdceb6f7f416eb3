#include "shell/AgentContext.h"

#include "base/ShellLog.h"
#include "store/StoreNotifications.h"

#include <utility>

namespace vorlane {
AgentContext::AgentContext(AgentSettings agent, Platform platform, const Runtime& runtime,
                           const MainLoop& mainLoop)
    : settings(std::move(agent)),
      io(runtime.io()),
      concurrent(runtime.concurrent()),
      main(mainLoop.executor()),
      poller(runtime.poller()),
      account(std::move(platform), settings.deployment, concurrent),
      preferences(*account.platform.standardDefaults, shellLog),
      storeNotifications(std::make_shared<StoreNotifications>(account.platform.signals, main)),
      journal(std::make_shared<SyncJournal>()),
      sheetExchange(std::make_shared<AsyncMutex>()) {}

}  // namespace vorlane
