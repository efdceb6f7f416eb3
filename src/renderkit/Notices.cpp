#include "renderkit/Notices.h"

#include <algorithm>
#include <utility>

namespace renderkit {

void Notices::add(std::string line) {
  const std::scoped_lock lock(mutex_);
  if (std::ranges::find(lines_, line) == lines_.end()) lines_.push_back(std::move(line));
}

std::vector<std::string> Notices::take() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(lines_, {});
}

}  // namespace renderkit
