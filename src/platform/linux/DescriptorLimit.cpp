#include "platform/DescriptorLimit.h"

#include <sys/resource.h>

#include <atomic>

namespace vorlane {
namespace {

/// 0 until the limit has been raised.
std::atomic<std::uint64_t> given{0};

}  // namespace

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  const auto before = limit.rlim_cur;
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) == 0) given = before;
}

std::uint64_t descriptorLimitForChildren() {
  if (const auto before = given.load()) return before;
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

}  // namespace vorlane
