#include "net/HTTPConnection.h"

#include <boost/asio/post.hpp>

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <chrono>

namespace vorlane {
namespace {

using boost::asio::posix::stream_descriptor;

constexpr std::size_t readSize = 65536;
/// What a client may go on sending after its answer, in time and in bytes,
/// before it is cut off.
constexpr std::chrono::seconds lingerTime{5};
constexpr std::size_t lingerBytes = std::size_t{64} << 20;

/// Every connection reads into the same buffer, since all of them read on the
/// one I/O thread; what they keep is in their parsers.
std::array<char, readSize>& readBuffer() {
  thread_local std::array<char, readSize> buffer;
  return buffer;
}

bool wouldBlock(int error) {
  return error == EAGAIN || error == EWOULDBLOCK;
}

ssize_t receive(int descriptor) {
  auto& buffer = readBuffer();
  for (;;) {
    const auto count = ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count >= 0 || errno != EINTR) return count;
  }
}

}  // namespace

HTTPConnection::HTTPConnection(Executor io, FileDescriptor socket, std::shared_ptr<OpenCount> open,
                               std::shared_ptr<const Handler> handler)
    : io_(std::move(io)), open_(std::move(open)), handler_(std::move(handler)), socket_(std::move(socket)) {
  ++*open_;
}

HTTPConnection::~HTTPConnection() {
  close();
}

int HTTPConnection::descriptor() const {
  // Asio spells the accessor without const.
  return waiting_ ? const_cast<stream_descriptor&>(*waiting_).native_handle() : socket_.get();
}

/// Ends the connection. The count goes down first, so that a client that has
/// seen the end is counted no more.
void HTTPConnection::close() {
  if (descriptor() < 0) return;
  --*open_;
  deadline_.reset();
  waiting_.reset();
  socket_.reset();
}

/// On `io`. Without a further wait the last owner goes and the connection closes.
void HTTPConnection::waitFor(stream_descriptor::wait_type what, Step next) {
  if (!waiting_) {
    boost::system::error_code error;
    stream_descriptor waiting(io_);
    waiting.assign(socket_.get(), error);
    if (error) return;
    socket_.release();
    waiting_.emplace(std::move(waiting));
  }
  waiting_->async_wait(what, [self = shared_from_this(), next](boost::system::error_code error) {
    if (!error) (self.get()->*next)();
  });
}

void HTTPConnection::read() {
  const auto count = receive(descriptor());
  if (count > 0) {
    auto request = parser_.feed({readBuffer().data(), static_cast<std::size_t>(count)});
    if (request) return (*handler_)(shared_from_this(), *std::move(request));
  } else if (count == 0 || !wouldBlock(errno)) {
    return;  // a half-sent request gets no answer
  }
  waitFor(stream_descriptor::wait_read, &HTTPConnection::read);
}

void HTTPConnection::answer(HTTPMessage message) {
  message_ = std::move(message);
  switch (sendSome()) {
    case Sending::complete:
      return finish();
    case Sending::blocked:
      return boost::asio::post(io_, [self = shared_from_this()] {
        self->waitFor(stream_descriptor::wait_write, &HTTPConnection::sendRest);
      });
    case Sending::failed:
      return close();
  }
}

/// Hands the kernel what it takes of the message.
HTTPConnection::Sending HTTPConnection::sendSome() {
  const auto headSize = message_.head.size();
  const auto total = headSize + message_.body.size();
  while (sent_ < total) {
    std::array<iovec, 2> parts{};
    std::size_t count = 0;
    if (sent_ < headSize) parts[count++] = {message_.head.data() + sent_, headSize - sent_};
    const auto bodySent = sent_ < headSize ? 0 : sent_ - headSize;
    parts[count++] = {message_.body.data() + bodySent, message_.body.size() - bodySent};

    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = count;
    const auto taken = ::sendmsg(descriptor(), &header, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return wouldBlock(errno) ? Sending::blocked : Sending::failed;
    sent_ += static_cast<std::size_t>(taken);
  }
  return Sending::complete;
}

void HTTPConnection::sendRest() {
  switch (sendSome()) {
    case Sending::complete:
      return finish();
    case Sending::blocked:
      return waitFor(stream_descriptor::wait_write, &HTTPConnection::sendRest);
    case Sending::failed:
      return close();
  }
}

/// Closing a socket that holds unread bytes, or that gets more of them, makes the
/// kernel cut the connection and may destroy the answer on its way. So where the
/// client may send more, its bytes are taken in for a while before the close.
void HTTPConnection::finish() {
  message_ = {};
  if (!clientMaySendMore()) return close();
  boost::asio::post(io_, [self = shared_from_this()] { self->linger(); });
}

bool HTTPConnection::clientMaySendMore() const {
  char next = 0;
  const auto count = ::recv(descriptor(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
  if (count > 0) return true;
  return count < 0 && wouldBlock(errno) && parser_.clientMaySendMore();
}

void HTTPConnection::linger() {
  ::shutdown(descriptor(), SHUT_WR);
  deadline_.emplace(io_, lingerTime);
  deadline_->async_wait([self = shared_from_this()](boost::system::error_code error) {
    if (!error) self->close();
  });
  drain();
}

void HTTPConnection::drain() {
  // A wait that had ended already when the deadline came still calls this.
  if (descriptor() < 0) return;
  const auto count = receive(descriptor());
  if (count > 0) drained_ += static_cast<std::size_t>(count);
  const bool open = count > 0 || (count < 0 && wouldBlock(errno));
  if (!open || drained_ > lingerBytes) return close();
  waitFor(stream_descriptor::wait_read, &HTTPConnection::drain);
}

}  // namespace vorlane
