#pragma once

#include "base/Failure.h"
#include "platform/UserDefaults.h"

#include <map>
#include <mutex>
#include <string>

namespace vorlane::testing {

/// User defaults in memory, which can be made to refuse writes.
class FakeUserDefaults : public UserDefaults {
 public:
  std::optional<DefaultsValue> value(std::string_view key) const override {
    const std::scoped_lock hold(lock_);
    const auto found = values_.find(std::string(key));
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }

  void apply(std::vector<Change> changes) override {
    const std::scoped_lock hold(lock_);
    if (readOnly_) throw Failure("the user defaults cannot be written");
    for (auto& [key, value] : changes) {
      if (value) {
        values_.insert_or_assign(key, std::move(*value));
      } else {
        values_.erase(key);
      }
    }
  }

  void setReadOnly(bool readOnly) {
    const std::scoped_lock hold(lock_);
    readOnly_ = readOnly;
  }

 private:
  mutable std::mutex lock_;
  std::map<std::string, DefaultsValue> values_;
  bool readOnly_ = false;
};

}  // namespace vorlane::testing
