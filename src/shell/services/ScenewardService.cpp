#include "shell/services/ScenewardService.h"

#include "base/ShellLog.h"
#include "shell/Contributions.h"
#include "store/ScenewardQueries.h"
#include "sync/RememberedPath.h"
#include "sync/ScenewardPusher.h"
#include "tools/sceneward/ScenewardToolModule.h"

namespace vorlane {

void ScenewardService::contribute(Contributions& to) {
  to.tools([this](const std::shared_ptr<ToolRegistry>& registry) {
    registry->registerModule(std::make_shared<ScenewardToolModule>(
        ScenewardQueries(context_.store, context_.storeNotifications), registry));
  });
}

void ScenewardService::start() {
  auto& account = context_.account;
  const auto pusher = std::make_shared<ScenewardPusher>(
      ScenewardCheckpointQueue(context_.store),
      ScenewardPushClient{
          .api = account.sceneward,
          .identify = [device = account.device](URLRequest& request) { device->apply(request); }},
      account.notifications, context_.journal, shellLog);
  if (scenewardPushTriggers_) scenewardPushTriggers_->stop();
  auto path = std::make_unique<RememberedPath>(account.platform.makeNetworkPathMonitor());
  context_.isOnline = path->isSatisfied();
  scenewardPushTriggers_ = std::make_unique<ScenewardPushTriggers>(
      ScenewardPushTriggers::Settings{.runOnce = [pusher] { return pusher->runOnce(); },
                                      .monitor = std::move(path),
                                      .notifications = account.notifications,
                                      .signals = account.platform.signals,
                                      .executor = context_.concurrent,
                                      .log = shellLog});
  scenewardPushTriggers_->start();
}

Task<> ScenewardService::stop() {
  if (scenewardPushTriggers_) scenewardPushTriggers_->stop();
  co_return;
}

}  // namespace vorlane
