#include "store/StoreNotifications.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <boost/asio/post.hpp>

namespace vorlane {

void StoreNotifications::post(const StoreScope& scope) const {
  signals_->post(scope.signalName());
}

StoreNotifications::Observer StoreNotifications::observe(const StoreScope& scope,
                                                         std::function<void()> handler) const {
  auto live = std::make_shared<std::atomic<bool>>(true);
  auto shared = std::make_shared<std::function<void()>>(std::move(handler));
  auto observation = signals_->observe(scope.signalName(), [main = main_, live, shared] {
    boost::asio::post(main, [live, shared] {
      if (!*live) return;
      try {
        (*shared)();
      } catch (const std::exception& error) {
        shellLog("store: an observer failed: " + describe(error));
      }
    });
  });
  return {scope.signalName(), std::move(live), std::move(observation)};
}

StoreNotifications::Observer& StoreNotifications::Observer::operator=(Observer&& other) noexcept {
  if (this == &other) return *this;
  cancel();
  name_ = std::move(other.name_);
  live_ = std::move(other.live_);
  observation_ = std::move(other.observation_);
  return *this;
}

void StoreNotifications::Observer::cancel() {
  if (live_) *live_ = false;
  observation_.cancel();
}

}  // namespace vorlane
