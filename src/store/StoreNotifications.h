#pragma once

#include "base/NotificationCenter.h"
#include "base/tasks/Task.h"
#include "platform/SignalCenter.h"
#include "store/StoreScope.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace vorlane {

/// The payload-free signal, to this process and others, that rows of a scope have
/// changed. Posted after a write has been committed, never inside it. Callable from
/// any thread.
class StoreNotifications {
 public:
  /// `main` runs every handler.
  StoreNotifications(std::shared_ptr<SignalCenter> signals, Executor main)
      : signals_(std::move(signals)), main_(std::move(main)) {}

  /// Never throws.
  void post(const StoreScope& scope) const;

  /// One registration; it ends when it is cancelled or destroyed. When that
  /// happens on the main executor, no call comes afterwards.
  class Observer {
   public:
    Observer(std::string name, std::shared_ptr<std::atomic<bool>> live, Observation observation)
        : name_(std::move(name)), live_(std::move(live)), observation_(std::move(observation)) {}
    Observer(Observer&&) = default;
    Observer& operator=(Observer&& other) noexcept;
    ~Observer() { cancel(); }

    const std::string& name() const { return name_; }
    void cancel();

   private:
    std::string name_;
    std::shared_ptr<std::atomic<bool>> live_;
    Observation observation_;
  };

  /// `handler` runs on the main executor at least once after each post; a burst of
  /// posts may run it several times. What it throws is logged.
  [[nodiscard]] Observer observe(const StoreScope& scope, std::function<void()> handler) const;

 private:
  std::shared_ptr<SignalCenter> signals_;
  Executor main_;
};

}  // namespace vorlane
