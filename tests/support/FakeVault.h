#pragma once

#include "platform/SecretVault.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace vorlane::testing {

/// A vault in memory. Writes are counted, so that its stamp is exact; reads, updates
/// and removals can be made to fail with a status, and the stamp to be missing.
class FakeVault : public SecretVault {
 public:
  struct Faults {
    vault::Status read = vault::success;
    vault::Status update = vault::success;
    vault::Status remove = vault::success;
    bool stampless = false;
  };

  Read read(const SecretItem& item) override {
    Read result;
    std::function<void()> after;
    {
      const std::scoped_lock hold(lock_);
      ++reads_;
      if (faults_.read != vault::success) return {faults_.read, {}};
      const auto found = items_.find(key(item));
      if (found != items_.end()) result = {vault::success, found->second};
      after = std::exchange(afterRead_, nullptr);
    }
    if (after) after();
    return result;
  }

  vault::Status update(const SecretItem& item, const std::string& bytes) override {
    const std::scoped_lock hold(lock_);
    if (faults_.update != vault::success) return faults_.update;
    const auto found = items_.find(key(item));
    if (found == items_.end()) return vault::itemNotFound;
    found->second = bytes;
    ++writes_;
    return vault::success;
  }

  vault::Status add(const SecretItem& item, const std::string& bytes) override {
    const std::scoped_lock hold(lock_);
    if (!items_.emplace(key(item), bytes).second) return vault::duplicateItem;
    ++writes_;
    return vault::success;
  }

  vault::Status remove(const SecretItem& item) override {
    const std::scoped_lock hold(lock_);
    if (faults_.remove != vault::success) return faults_.remove;
    if (items_.erase(key(item)) == 0) return vault::itemNotFound;
    ++writes_;
    return vault::success;
  }

  std::optional<std::string> stamp(const SecretItem&) override {
    const std::scoped_lock hold(lock_);
    if (faults_.stampless) return std::nullopt;
    return std::to_string(writes_);
  }

  /// As another process would: the item's bytes, present whatever they are.
  void plant(const SecretItem& item, std::string bytes) {
    const std::scoped_lock hold(lock_);
    items_[key(item)] = std::move(bytes);
    ++writes_;
  }
  std::optional<std::string> bytes(const SecretItem& item) const {
    const std::scoped_lock hold(lock_);
    const auto found = items_.find(key(item));
    return found == items_.end() ? std::nullopt : std::optional(found->second);
  }
  void fail(Faults faults) {
    const std::scoped_lock hold(lock_);
    faults_ = faults;
  }
  /// Runs once, after the next read has taken the bytes and before it returns them.
  void afterNextRead(std::function<void()> action) {
    const std::scoped_lock hold(lock_);
    afterRead_ = std::move(action);
  }
  int reads() const {
    const std::scoped_lock hold(lock_);
    return reads_;
  }

 private:
  static std::string key(const SecretItem& item) { return item.service + "/" + item.account; }

  mutable std::mutex lock_;
  std::map<std::string, std::string> items_;
  Faults faults_;
  std::function<void()> afterRead_;
  int reads_ = 0;
  int writes_ = 0;
};

}  // namespace vorlane::testing
