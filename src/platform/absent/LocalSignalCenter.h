#pragma once

#include "platform/SignalCenter.h"

#include <string>
#include <utility>

namespace vorlane {

/// The signals of a machine without a container for them: they stay within this process.
class LocalSignalCenter final : public SignalCenter {
 public:
  bool post(std::string_view name) override {
    center_.post(name);
    return true;  // there is nobody else to reach
  }
  Observation observe(std::string name, std::function<void()> handler) override {
    return center_.observe(std::move(name), std::move(handler));
  }

 private:
  NotificationCenter center_;
};

}  // namespace vorlane
