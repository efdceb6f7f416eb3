#include "base/tasks/BlockingThread.h"

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace vorlane {

struct BlockingThread::State {
  std::string name;
  std::mutex lock;
  std::condition_variable changed;
  std::deque<std::function<void()>> queue;
  bool ending = false;
  std::thread thread;

  void run() {
    // The kernel keeps 15 characters of a thread's name.
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
    std::unique_lock hold(lock);
    for (;;) {
      changed.wait(hold, [this] { return ending || !queue.empty(); });
      if (ending) return;
      auto work = std::move(queue.front());
      queue.pop_front();
      hold.unlock();
      work();
      work = nullptr;  // its captures go before the lock is taken again
      hold.lock();
    }
  }
};

BlockingThread::BlockingThread(std::string name) : state_(std::make_shared<State>()) {
  state_->name = std::move(name);
}

BlockingThread::~BlockingThread() {
  std::deque<std::function<void()>> dropped;
  {
    const std::scoped_lock hold(state_->lock);
    state_->ending = true;
    dropped.swap(state_->queue);
  }
  state_->changed.notify_all();
  if (!state_->thread.joinable()) return;
  // The last owner may be the work itself; a thread cannot join itself.
  if (isCurrentThread()) {
    state_->thread.detach();
  } else {
    state_->thread.join();
  }
}

void BlockingThread::post(std::function<void()> work) {
  {
    const std::scoped_lock hold(state_->lock);
    // First, so that nothing stays queued when there can be no thread.
    if (!state_->thread.joinable()) {
      state_->thread = std::thread([state = state_] { state->run(); });
    }
    state_->queue.push_back(std::move(work));
  }
  state_->changed.notify_one();
}

bool BlockingThread::isCurrentThread() const {
  const std::scoped_lock hold(state_->lock);
  return state_->thread.get_id() == std::this_thread::get_id();
}

}  // namespace vorlane
