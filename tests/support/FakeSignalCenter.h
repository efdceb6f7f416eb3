#pragma once

#include "platform/SignalCenter.h"

#include <map>
#include <mutex>
#include <string>

namespace vorlane::testing {

/// Signals within this process alone, counted.
class FakeSignalCenter : public SignalCenter {
 public:
  bool post(std::string_view name) override {
    {
      const std::scoped_lock hold(lock_);
      ++posts_[std::string(name)];
    }
    center_.post(name);
    return true;
  }

  Observation observe(std::string name, std::function<void()> handler) override {
    return center_.observe(std::move(name), std::move(handler));
  }

  int posts(const std::string& name) const {
    const std::scoped_lock hold(lock_);
    const auto found = posts_.find(name);
    return found == posts_.end() ? 0 : found->second;
  }

 private:
  NotificationCenter center_;
  mutable std::mutex lock_;
  std::map<std::string, int> posts_;
};

}  // namespace vorlane::testing
