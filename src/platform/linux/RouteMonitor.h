#pragma once

#include "platform/NetworkPathMonitor.h"

#include <memory>

namespace vorlane {

/// Asks the kernel for its routes, again after each change that it reports (rtnetlink), and
/// wakes for nothing else. Changes in quick succession are looked at once. Callable from
/// any thread.
class RouteMonitor : public NetworkPathMonitor {
 public:
  explicit RouteMonitor(Executor io);
  ~RouteMonitor() override;
  RouteMonitor(const RouteMonitor&) = delete;
  RouteMonitor& operator=(const RouteMonitor&) = delete;

  void start(Executor executor, Handler handler) override;
  void cancel() override;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace vorlane
