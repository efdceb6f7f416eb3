#include "net/DescriptorReserve.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

namespace vorlane {
namespace {

/// How many are kept back, and as what part of the limit at most.
constexpr rlim_t keptBack = 128;
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

/// Either by how many connections there are, or because others use the rest: the kernel gives
/// the lowest number that is free.
bool DescriptorReserve::isKeptBack(int descriptor) const {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  const auto inUse = std::max<rlim_t>(static_cast<rlim_t>(descriptor), connections_);
  return inUse + std::min(keptBack, limit.rlim_cur / partKeptBack) >= limit.rlim_cur;
}

/// Who was asked before, and has not gone yet, is passed over.
std::shared_ptr<DescriptorReserve::Guest> DescriptorReserve::nextToLeave() {
  const std::scoped_lock hold(state_->lock);
  for (auto& guests : state_->guests) {
    for (auto& guest : guests) {
      if (auto leaving = std::exchange(guest, {}).lock()) return leaving;
    }
  }
  return nullptr;
}

void DescriptorReserve::makeRoom(std::size_t count) {
  for (; count > 0; --count) {
    const auto leaving = nextToLeave();
    if (!leaving) return;
    leaving->cut();
  }
}

}  // namespace vorlane
