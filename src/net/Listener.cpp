#include "net/Listener.h"

#include "base/Failure.h"
#include "base/ShellLog.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

namespace vorlane {
namespace {

/// How many connections are taken before other work on the thread has its turn.
constexpr int batch = 32;
constexpr std::chrono::milliseconds pauseLength{100};

FileDescriptor openReserve() {
  return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

/// The connection was gone before it was taken; the next one may be well.
bool concernsOneConnection(int error) {
  switch (error) {
    case EINTR:
    case ECONNABORTED:
    case EPROTO:
    case EPERM:
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENOPROTOOPT:
    case ENONET:
      return true;
    default:
      return false;
  }
}

}  // namespace

Listener::Listener(Executor io, FileDescriptor socket, std::string name, Accepted accepted)
    : name_(std::move(name)),
      accepted_(std::move(accepted)),
      waiting_(std::in_place, io, socket.get()),
      retry_(io),
      reserve_(openReserve()) {
  socket.release();
}

Listener::Listener(Executor io, Poller& poller, FileDescriptor socket, std::string name, Accepted accepted,
                   std::function<void()> noRoom)
    : name_(std::move(name)),
      accepted_(std::move(accepted)),
      noRoom_(std::move(noRoom)),
      poller_(&poller),
      socket_(std::move(socket)),
      retry_(io),
      reserve_(openReserve()) {}

void Listener::start() {
  const std::scoped_lock hold(lock_);
  wait();
}

void Listener::close() {
  const std::scoped_lock hold(lock_);
  boost::system::error_code ignored;
  if (waiting_) waiting_->close(ignored);
  if (key_ != 0) poller_->remove(std::exchange(key_, 0), socket_.get());
  socket_.reset();
  retry_.cancel();
}

/// Under the lock. -1 once it is closed.
int Listener::descriptor() {
  if (!waiting_) return socket_.get();
  return waiting_->is_open() ? waiting_->native_handle() : -1;
}

/// Under the lock.
void Listener::wait() {
  if (descriptor() < 0) return;
  if (waiting_) {
    return waiting_->async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                [self = shared_from_this()](boost::system::error_code error) {
                                  if (!error) self->acceptWaiting();
                                });
  }
  if (key_ != 0) return poller_->wait(key_, socket_.get(), Poller::Wait::onceForBytes);
  key_ = poller_->add(socket_.get(), shared_from_this(), Poller::Wait::onceForBytes);
  if (key_ == 0) pause(errno);
}

/// One connection, since the thread may be busy with it for a while.
void Listener::ready() {
  FileDescriptor connection;
  auto step = Step::again;
  while (step == Step::again) step = acceptOne(connection);
  if (step != Step::accepted) return;
  bool waited = false;
  {
    const std::scoped_lock hold(lock_);
    waited = pausing_;
    if (!waited) wait();
  }
  pass(std::move(connection));
  // After a pause, up to where nobody is left.
  if (waited) acceptWaiting();
}

void Listener::pass(FileDescriptor connection) {
  try {
    accepted_(std::move(connection));
  } catch (const std::exception& error) {
    // Costs this connection, never the loop.
    shellLog(name_ + " dropped a connection: " + describe(error));
  }
}

void Listener::acceptWaiting() {
  for (int count = 0; count < batch; ++count) {
    FileDescriptor connection;
    const auto step = acceptOne(connection);
    if (step == Step::again) continue;
    if (step != Step::accepted) return;
    pass(std::move(connection));
  }
  const std::scoped_lock hold(lock_);
  wait();
}

Listener::Step Listener::acceptOne(FileDescriptor& connection) {
  const std::scoped_lock hold(lock_);
  if (descriptor() < 0) return Step::closed;
  connection.reset(::accept4(descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (connection) return Step::accepted;
  const int error = errno;
  if (error == EAGAIN || error == EWOULDBLOCK) {
    pausing_ = false;  // nobody is left waiting
    wait();
    return Step::waits;
  }
  if (concernsOneConnection(error)) return Step::again;
  pause(error);
  if (noRoom_ && (error == EMFILE || error == ENFILE)) noRoom_();
  return Step::paused;
}

/// Under the lock. The connection that could not be taken stays readable in the
/// kernel's queue, so waiting for readiness would spin.
void Listener::pause(int reason) {
  if (!std::exchange(pausing_, true)) {
    reserve_.reset();
    shellLog(withErrno(name_ + " pauses accepting", reason));
    reserve_ = openReserve();
  }
  retry_.expires_after(pauseLength);
  retry_.async_wait([self = shared_from_this()](boost::system::error_code error) {
    if (error) return;
    if (self->poller_ == nullptr) return self->acceptWaiting();
    const std::scoped_lock held(self->lock_);
    self->wait();
  });
}

}  // namespace vorlane
