#pragma once

#include "base/FileDescriptor.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace vorlane {

/// Threads that wait for descriptors and do the work that these bring. All of them wait in
/// the kernel at once, and each event wakes one: the thread that is woken up reads, works
/// and answers, while another waits already. So nothing is handed from thread to thread,
/// and work that takes long, or blocks for a while, holds up nobody else.
///
/// The threads are made as they are needed: one more when none is left to wait. The kernel
/// wakes the one that fell asleep last, so that a lone client is always served by the same.
class Poller {
 public:
  /// What is told that its descriptor is ready.
  class Source {
   public:
    virtual ~Source() = default;
    /// On a thread of the poller. There may be nothing to do after all.
    virtual void ready() = 0;
  };

  /// What a source waits for. `once`: it is called one time, and then has to ask again.
  /// `edges`: it is called whenever there is something new, from several threads at once
  /// if it has not returned by then, and has to ask again only for what it left behind.
  enum class Wait { onceForBytes, onceForRoom, edgesOfBytes, edgesOfBytesAndRoom };

  /// A descriptor that is watched; 0 is none.
  using Key = std::uint64_t;

  /// `working` is called before each piece of work, and must be quick. Throws Failure when
  /// the system has no room for the poller.
  explicit Poller(std::size_t threadLimit, std::function<void()> working = nullptr);
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// Watches `descriptor` and keeps `source` alive until `remove`. 0 when the system takes
  /// no more. From any thread, as all that follows.
  Key add(int descriptor, std::shared_ptr<Source> source, Wait wait);
  /// Asks again. What is there already is told at once, after what others wait for.
  void wait(Key key, int descriptor, Wait wait);
  /// Before the descriptor is closed. A call that is under way goes on.
  void remove(Key key, int descriptor);

  /// Whether a thread is left for whatever comes next, so that who is busy need not make way.
  bool hasThreadToSpare() const { return waiting_ > 0; }

  /// Ends and joins the threads. Not from one of them.
  void stop();
  /// Lets go of the sources that are left, after `stop`.
  void drop();

 private:
  void startThread();
  void run();
  std::shared_ptr<Source> source(Key key);

  const std::size_t threadLimit_;
  const std::function<void()> working_;
  const FileDescriptor epoll_;
  const FileDescriptor stopping_;
  /// Threads that wait in the kernel, or are about to.
  std::atomic<std::size_t> waiting_ = 0;

  std::mutex threadLock_;
  bool stopped_ = false;
  std::vector<std::thread> threads_;

  std::mutex sourceLock_;
  Key lastKey_ = 0;
  std::unordered_map<Key, std::shared_ptr<Source>> sources_;
};

}  // namespace vorlane
