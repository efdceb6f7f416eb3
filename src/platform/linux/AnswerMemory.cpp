#include "platform/linux/AnswerMemory.h"

#include <algorithm>
#include <utility>

namespace vorlane {
namespace {

constexpr std::size_t smallShare = std::size_t{1} << 20;
/// Less is not worth the time that giving it back to the system takes.
constexpr std::size_t muchMemory = std::size_t{8} << 20;

}  // namespace

std::unique_ptr<AnswerMemory::Share> AnswerMemory::share() {
  return std::make_unique<Share>(shared_from_this());
}

void AnswerMemory::onEmptied(std::function<void()> emptied) {
  const std::scoped_lock hold(lock_);
  emptied_ = std::move(emptied);
}

bool AnswerMemory::take(std::size_t bytes, bool always) {
  const std::scoped_lock hold(lock_);
  if (!always && taken_ + bytes > limit_) return false;
  taken_ += bytes;
  peak_ = std::max(peak_, taken_);
  return true;
}

void AnswerMemory::giveBack(std::size_t bytes) {
  const std::scoped_lock hold(lock_);
  taken_ -= bytes;
  if (taken_ > 0) return;
  if (std::exchange(peak_, 0) >= muchMemory && emptied_) emptied_();
}

bool AnswerMemory::Share::growTo(std::size_t bytes) {
  if (bytes <= bytes_) return true;
  if (!memory_->take(bytes - bytes_, bytes <= smallShare)) return false;
  bytes_ = bytes;
  return true;
}

}  // namespace vorlane
