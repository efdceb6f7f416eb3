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
      socket_(io, socket.get()),
      retry_(io),
      reserve_(openReserve()) {
  socket.release();
}

void Listener::start() {
  const std::scoped_lock hold(lock_);
  wait();
}

void Listener::close() {
  const std::scoped_lock hold(lock_);
  boost::system::error_code ignored;
  socket_.close(ignored);
  retry_.cancel();
}

/// Under the lock.
void Listener::wait() {
  if (!socket_.is_open()) return;
  socket_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                     [self = shared_from_this()](boost::system::error_code error) {
                       if (!error) self->acceptWaiting();
                     });
}

void Listener::acceptWaiting() {
  for (int count = 0; count < batch; ++count) {
    FileDescriptor connection;
    const auto step = acceptOne(connection);
    if (step == Step::again) continue;
    if (step != Step::accepted) return;
    try {
      accepted_(std::move(connection));
    } catch (const std::exception& error) {
      // Costs this connection, never the loop.
      shellLog(name_ + " dropped a connection: " + describe(error));
    }
  }
  const std::scoped_lock hold(lock_);
  wait();
}

Listener::Step Listener::acceptOne(FileDescriptor& connection) {
  const std::scoped_lock hold(lock_);
  if (!socket_.is_open()) return Step::closed;
  connection.reset(::accept4(socket_.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (connection) return Step::accepted;
  const int error = errno;
  if (error == EAGAIN || error == EWOULDBLOCK) {
    pausing_ = false;  // nobody is left waiting
    wait();
    return Step::waits;
  }
  if (concernsOneConnection(error)) return Step::again;
  pause(error);
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
    if (!error) self->acceptWaiting();
  });
}

}  // namespace vorlane
