#include "net/DescriptorReserve.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

namespace vorlane {
namespace {

/// How many are kept back, and as what part of the limit at most.
constexpr rlim_t keptBack = 64;
constexpr rlim_t partKeptBack = 4;

}  // namespace

DescriptorReserve::Place::Place(std::shared_ptr<State> state, std::weak_ptr<Guest> guest, Rank rank)
    : state_(std::move(state)), guests_(state_->guests[static_cast<std::size_t>(rank)]) {
  const std::scoped_lock hold(state_->lock);
  entry_ = guests_.insert(guests_.end(), std::move(guest));
}

DescriptorReserve::Place::~Place() {
  const std::scoped_lock hold(state_->lock);
  guests_.erase(entry_);
}

std::unique_ptr<DescriptorReserve::Place> DescriptorReserve::enter(std::weak_ptr<Guest> guest, Rank rank) {
  return std::make_unique<Place>(state_, std::move(guest), rank);
}

/// The kernel gives the lowest number that is free, so that a number tells how many are in use.
bool DescriptorReserve::isKeptBack(int descriptor) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  return static_cast<rlim_t>(descriptor) + std::min(keptBack, limit.rlim_cur / partKeptBack) >=
         limit.rlim_cur;
}

void DescriptorReserve::makeRoom() {
  std::shared_ptr<Guest> leaving;
  {
    const std::scoped_lock hold(state_->lock);
    for (auto& guests : state_->guests) {
      for (auto& guest : guests) {
        // Who was asked before, and has not gone yet, is passed over.
        leaving = std::exchange(guest, {}).lock();
        if (leaving) break;
      }
      if (leaving) break;
    }
  }
  if (leaving) leaving->cut();
}

}  // namespace vorlane
