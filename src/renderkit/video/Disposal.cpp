#include "renderkit/video/Disposal.h"

#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace renderkit {
namespace {

/// Joined when the process ends: a library must not be torn down under a thread in it.
struct Threads {
  std::mutex mutex;
  std::vector<std::jthread> running;
};

Threads& threads() {
  static Threads all;
  return all;
}

}  // namespace

void disposeLater(std::function<void()> work) {
  auto& all = threads();
  const std::scoped_lock lock(all.mutex);
  all.running.emplace_back([work = std::move(work)]() mutable {
    work();
    work = nullptr;
  });
}

}  // namespace renderkit
