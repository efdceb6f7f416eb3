#include "platform/linux/FileSignalCenter.h"

#include "base/Failure.h"
#include "base/SHA256.h"
#include "base/ShellLog.h"
#include "platform/linux/SignalFolder.h"

#include <fmt/format.h>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace vorlane {

namespace asio = boost::asio;

struct FileSignalCenter::State : std::enable_shared_from_this<State> {
  struct Observed {
    std::string name;
    int observers = 0;
  };

  State(const std::string& path, const Executor& io, const Executor& handlers)
      : deliveries(asio::make_strand(handlers)),
        folder(path),
        descriptor(io, folder.watchDescriptor()),
        retry(io) {}
  ~State() { descriptor.release(); }

  /// The names of the observed signals that the events stand for, each once.
  std::set<std::string> namesOf(const SignalFolder::Events& events) const {
    std::set<std::string> names;
    if (events.anything) {
      for (const auto& [file, signal] : observed) names.insert(signal.name);
    }
    for (const auto& file : events.files) {
      const auto found = observed.find(file);
      if (found != observed.end()) names.insert(found->second.name);
    }
    return names;
  }

  /// Waits for the next events. With the lock held.
  void wait() {
    descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                          [self = shared_from_this()](const boost::system::error_code& error) {
                            if (!error) self->takeForeign();
                          });
  }

  void takeForeign() {
    std::set<std::string> names;
    {
      const std::scoped_lock hold(lock);
      if (closed) return;
      auto events = folder.takeEvents();
      restore();
      names = namesOf(events);
      wait();
    }
    deliver(std::move(names));
  }

  /// Watches the folder again when it has gone; as long as that fails, once a second,
  /// since a process that only observes has no other occasion. With the lock held.
  void restore() {
    try {
      folder.restore();
      retried = false;
    } catch (const std::exception& error) {
      if (!std::exchange(retried, true)) shellLog(describe(error));
      retry.expires_after(std::chrono::seconds(1));
      retry.async_wait([self = shared_from_this()](const boost::system::error_code& gone) {
        if (!gone) self->tryAgain();
      });
    }
  }

  void tryAgain() {
    std::set<std::string> names;
    {
      const std::scoped_lock hold(lock);
      if (closed) return;
      restore();
      // While nobody watched, any signal may have been posted.
      if (!retried) names = namesOf({.files = {}, .anything = true});
    }
    deliver(std::move(names));
  }

  void deliver(std::set<std::string> names) {
    if (names.empty()) return;
    asio::post(deliveries, [self = shared_from_this(), names = std::move(names)] {
      for (const auto& name : names) self->local.post(name);
    });
  }

  void close() {
    const std::scoped_lock hold(lock);
    closed = true;
    descriptor.cancel();
    retry.cancel();
  }

  const asio::strand<Executor> deliveries;
  NotificationCenter local;

  // Guards what follows; never held while a handler runs.
  std::mutex lock;
  SignalFolder folder;
  asio::posix::stream_descriptor descriptor;  // borrows the folder's watch
  std::map<std::string, Observed> observed;   // by file name
  asio::steady_timer retry;
  bool retried = false;
  bool closed = false;
};

FileSignalCenter::FileSignalCenter(const std::string& folder, const Executor& io, const Executor& handlers)
    : state_(std::make_shared<State>(folder, io, handlers)) {
  const std::scoped_lock hold(state_->lock);
  state_->wait();
}

FileSignalCenter::~FileSignalCenter() {
  state_->close();
}

bool FileSignalCenter::post(std::string_view name) {
  const auto state = state_;
  bool sent = true;
  std::set<std::string> foreign;
  {
    const std::scoped_lock hold(state->lock);
    SignalFolder::Events events;
    try {
      state->folder.post(sha256Hex(name), events);
    } catch (const std::exception& error) {
      shellLog(fmt::format("signal {}: {}", name, describe(error)));
      sent = false;
      state->restore();
    }
    foreign = state->namesOf(events);
  }
  state->local.post(name);
  // Ours has been delivered just now, after whatever others posted of that name.
  foreign.erase(std::string(name));
  state->deliver(std::move(foreign));
  return sent;
}

Observation FileSignalCenter::observe(std::string name, std::function<void()> handler) {
  const auto file = sha256Hex(name);
  {
    const std::scoped_lock hold(state_->lock);
    auto& observed = state_->observed[file];
    observed.name = name;
    ++observed.observers;
  }
  auto local = std::make_shared<Observation>(state_->local.observe(std::move(name), std::move(handler)));
  return Observation([state = std::weak_ptr(state_), file, local] {
    local->cancel();
    const auto alive = state.lock();
    if (!alive) return;
    const std::scoped_lock hold(alive->lock);
    const auto found = alive->observed.find(file);
    if (found != alive->observed.end() && --found->second.observers == 0) alive->observed.erase(found);
  });
}

}  // namespace vorlane
