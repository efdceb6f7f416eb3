#pragma once

#include "base/Failure.h"
#include "platform/UserDefaults.h"

namespace vorlane {

/// The user defaults of a machine that has no folder for them: nothing is set, and setting
/// throws Failure.
class AbsentUserDefaults final : public UserDefaults {
 public:
  std::optional<DefaultsValue> value(std::string_view) const override { return std::nullopt; }
  void apply(std::vector<Change>) override {
    throw Failure("there is no folder for user defaults: HOME is not set");
  }
};

}  // namespace vorlane
