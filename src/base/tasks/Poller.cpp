#include "base/tasks/Poller.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <utility>

namespace vorlane {
namespace {

/// The key of the descriptor that ends the threads.
constexpr Poller::Key stopKey = 0;

epoll_event eventFor(Poller::Key key, Poller::Wait wait) {
  epoll_event event{};
  event.data.u64 = key;
  switch (wait) {
    case Poller::Wait::onceForBytes:
      event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
      break;
    case Poller::Wait::onceForRoom:
      event.events = EPOLLOUT | EPOLLONESHOT;
      break;
    case Poller::Wait::edgesOfBytes:
      event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
      break;
    case Poller::Wait::edgesOfBytesAndRoom:
      event.events = EPOLLIN | EPOLLRDHUP | EPOLLOUT | EPOLLET;
      break;
  }
  return event;
}

}  // namespace

Poller::Poller(std::size_t threadLimit, std::function<void()> working)
    : threadLimit_(threadLimit),
      working_(std::move(working)),
      epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      stopping_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = stopKey;
  if (!epoll_ || !stopping_ || ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, stopping_.get(), &event) != 0) {
    throw Failure(withErrno("cannot watch descriptors", errno));
  }
  startThread();
}

Poller::~Poller() {
  stop();
  drop();
}

Poller::Key Poller::add(int descriptor, std::shared_ptr<Source> source, Wait wait) {
  Key key = 0;
  {
    const std::scoped_lock hold(sourceLock_);
    key = ++lastKey_;
    sources_.emplace(key, std::move(source));
  }
  auto event = eventFor(key, wait);
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0) return key;
  std::shared_ptr<Source> unwatched;  // goes after the lock
  const std::scoped_lock hold(sourceLock_);
  if (const auto found = sources_.find(key); found != sources_.end()) {
    unwatched = std::move(found->second);
    sources_.erase(found);
  }
  return 0;
}

void Poller::wait(Key key, int descriptor, Wait wait) {
  auto event = eventFor(key, wait);
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void Poller::remove(Key key, int descriptor) {
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
  std::shared_ptr<Source> removed;  // goes after the lock
  const std::scoped_lock hold(sourceLock_);
  const auto found = sources_.find(key);
  if (found == sources_.end()) return;
  removed = std::move(found->second);
  sources_.erase(found);
}

std::shared_ptr<Poller::Source> Poller::source(Key key) {
  const std::scoped_lock hold(sourceLock_);
  const auto found = sources_.find(key);
  return found == sources_.end() ? nullptr : found->second;
}

void Poller::startThread() {
  const std::scoped_lock hold(threadLock_);
  if (stopped_ || threads_.size() >= threadLimit_) return;
  // Counted from here on, so that a burst does not start more than one.
  ++waiting_;
  try {
    threads_.emplace_back([this] { run(); });
  } catch (const std::exception& error) {
    --waiting_;
    shellLog("a thread for connections cannot be started: " + describe(error));
  }
}

void Poller::run() {
  pthread_setname_np(pthread_self(), "connections");
  for (;; ++waiting_) {
    // One at a time: another thread takes the next, while this one works.
    epoll_event event{};
    int count = 0;
    do {
      count = ::epoll_wait(epoll_.get(), &event, 1, -1);
    } while (count < 0 && errno == EINTR);
    if (--waiting_ == 0) startThread();
    if (count <= 0 || event.data.u64 == stopKey) return;
    if (working_) working_();
    try {
      if (const auto found = source(event.data.u64)) found->ready();
    } catch (const std::exception& error) {
      shellLog("a connection failed: " + describe(error));
    }
  }
}

void Poller::stop() {
  std::vector<std::thread> threads;
  {
    const std::scoped_lock hold(threadLock_);
    stopped_ = true;
    threads.swap(threads_);
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto told = ::write(stopping_.get(), &one, sizeof one);
  for (auto& thread : threads) thread.join();
}

void Poller::drop() {
  std::unordered_map<Key, std::shared_ptr<Source>> sources;
  const std::scoped_lock hold(sourceLock_);
  sources.swap(sources_);
}

}  // namespace vorlane
