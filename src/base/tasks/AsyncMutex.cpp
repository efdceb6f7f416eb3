#include "base/tasks/AsyncMutex.h"

#include "base/tasks/Event.h"

#include <deque>
#include <mutex>

namespace vorlane {

struct AsyncMutex::State {
  using Turn = std::shared_ptr<Event>;

  std::mutex lock;
  bool held = false;
  /// The waiters, the first in front. The one that is taken out of here holds the lock.
  std::deque<Turn> waiting;

  /// Nothing when the caller holds the lock now, else its place in the queue.
  Turn enter() {
    const std::scoped_lock hold(lock);
    if (!std::exchange(held, true)) return nullptr;
    return waiting.emplace_back(std::make_shared<Event>());
  }
  void release() {
    Turn next;
    {
      const std::scoped_lock hold(lock);
      held = !waiting.empty();
      if (!held) return;
      next = std::move(waiting.front());
      waiting.pop_front();
    }
    next->set();
  }
  /// The turn's task waits no more, and may have been given the lock just before.
  void giveUp(const Turn& turn) {
    {
      const std::scoped_lock hold(lock);
      if (std::erase(waiting, turn) > 0) return;
    }
    release();
  }
};

AsyncMutex::AsyncMutex() : state_(std::make_shared<State>()) {}

Task<AsyncMutex::Hold> AsyncMutex::lock() {
  /// Gives the place back when the coroutine ends before its turn, however it ends.
  struct Place {
    std::shared_ptr<State> state;
    State::Turn turn;
    ~Place() {
      if (turn) state->giveUp(turn);
    }
  };
  Place place{state_, state_->enter()};
  if (place.turn) co_await place.turn->wait();
  place.turn = nullptr;
  co_return Hold(place.state);
}

AsyncMutex::Hold::~Hold() {
  if (state_) state_->release();
}

}  // namespace vorlane
