#pragma once

#include "platform/NetworkPathMonitor.h"

#include <atomic>
#include <functional>
#include <memory>

namespace vorlane {

/// A network path monitor that others may ask for its last report, so that one watch serves both
/// who acts on changes and who only looks. Callable as the monitor that it is made of.
class RememberedPath : public NetworkPathMonitor {
 public:
  explicit RememberedPath(std::unique_ptr<NetworkPathMonitor> monitor);
  ~RememberedPath() override;

  /// Whether the path is satisfied by the last report. Before the first, and after `cancel`, it
  /// counts as satisfied. May be called from any thread, and outlive this object.
  std::function<bool()> isSatisfied() const;

  void start(Executor executor, Handler handler) override;
  void cancel() override;

 private:
  const std::unique_ptr<NetworkPathMonitor> monitor_;
  const std::shared_ptr<std::atomic<bool>> satisfied_ = std::make_shared<std::atomic<bool>>(true);
};

}  // namespace vorlane
