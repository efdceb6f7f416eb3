#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace vorlane {

/// Ends an observation when it is destroyed or cancelled. After cancel returns
/// no new call begins; one that runs on another thread at that moment may finish.
class Observation {
 public:
  Observation() = default;
  explicit Observation(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  Observation(Observation&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Observation& operator=(Observation&& other) noexcept {
    cancel();
    cancel_ = std::exchange(other.cancel_, nullptr);
    return *this;
  }
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;
  ~Observation() { cancel(); }

  void cancel() {
    if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
  }
  explicit operator bool() const { return cancel_ != nullptr; }

 private:
  std::function<void()> cancel_;
};

/// Named, payload-free notifications within one process. Observers run on the
/// poster's thread, in the order in which they were added, before post returns;
/// what one throws is logged and keeps the others. No lock is held meanwhile, so
/// an observer may post, observe and cancel. Callable from any thread. An
/// observation may outlive the centre.
class NotificationCenter {
 public:
  using Handler = std::function<void()>;

  NotificationCenter();
  void post(std::string_view name) const;
  [[nodiscard]] Observation observe(std::string name, Handler handler);

 private:
  struct Table;
  std::shared_ptr<Table> table_;
};

}  // namespace vorlane
