#include "sync/RememberedPath.h"

#include <utility>

namespace vorlane {

RememberedPath::RememberedPath(std::unique_ptr<NetworkPathMonitor> monitor) : monitor_(std::move(monitor)) {}

RememberedPath::~RememberedPath() {
  *satisfied_ = true;
}

std::function<bool()> RememberedPath::isSatisfied() const {
  return [satisfied = satisfied_] { return satisfied->load(); };
}

void RememberedPath::start(Executor executor, Handler handler) {
  monitor_->start(std::move(executor), [state = satisfied_, handler = std::move(handler)](bool satisfied) {
    *state = satisfied;
    handler(satisfied);
  });
}

void RememberedPath::cancel() {
  monitor_->cancel();
  *satisfied_ = true;
}

}  // namespace vorlane
